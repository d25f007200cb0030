// Every frame the station's builders write must be a well-formed OCPP-J frame
// whose payload validates against the official schema of its message.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createRequire } from 'node:module';
import path from 'node:path';

const sourceDir = process.env.OCPP_SOURCE_DIR || path.resolve(path.dirname(new URL(import.meta.url).pathname), '../..');
const require = createRequire(path.join(sourceDir, 'package.json'));
const Ajv = require('ajv');
const addFormats = require('ajv-formats');
const schemas = require('ocpp-rpc/lib/schemas/ocpp2_0_1.json');

const ajv = new Ajv({ strictSchema: false, allErrors: true });
addFormats(ajv);
for (const s of schemas) ajv.addSchema(s);

const lines = execFileSync(process.env.BUILDER_FRAMES, { maxBuffer: 256 * 1024 * 1024 })
    .toString('utf8').split('\n').filter(Boolean).map((l) => JSON.parse(l));

test('every builder frame validates against its schema', () => {
    assert.ok(lines.length > 150, `only ${lines.length} frames`);
    const failures = [];
    for (const { schema, frame } of lines) {
        const validate = ajv.getSchema(schema);
        assert.ok(validate, `no schema ${schema}`);
        let msg;
        try {
            msg = JSON.parse(frame);
        } catch (e) {
            failures.push(`${schema}: not JSON: ${e.message}`);
            continue;
        }
        const isCall = schema.endsWith('.req');
        const action = schema.slice(4, schema.lastIndexOf('.'));
        if (isCall) {
            if (msg.length !== 4 || msg[0] !== 2 || msg[2] !== action || typeof msg[1] !== 'string' || msg[1].length !== 36) {
                failures.push(`${schema}: bad CALL header ${JSON.stringify(msg.slice(0, 3))}`);
            }
            if (!frame.startsWith(`[2,"${msg[1]}","${action}",\n{`)) failures.push(`${schema}: CALL text form`);
        } else if (msg.length !== 3 || msg[0] !== 3 || typeof msg[1] !== 'string') {
            failures.push(`${schema}: bad CALLRESULT header`);
        }
        const payload = isCall ? msg[3] : msg[2];
        if (!validate(payload)) {
            failures.push(`${schema}: ${ajv.errorsText(validate.errors)} in ${JSON.stringify(payload).slice(0, 300)}`);
        }
    }
    assert.deepEqual(failures, []);
});
