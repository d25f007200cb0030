// Every OCPP 2.0.1 message record, driven with payloads generated from its own
// schema: what the C++ record writes back must validate against the schema and
// equal what it read (less customData); a member of the wrong JSON type must
// be refused. The generated schema check must agree with the official
// validator on those payloads and on each of them bent around every rule.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { createRequire } from 'node:module';
import path from 'node:path';
import readline from 'node:readline';
import { mkdirSync, writeFileSync } from 'node:fs';

const sourceDir = process.env.OCPP_SOURCE_DIR || path.resolve(path.dirname(new URL(import.meta.url).pathname), '../..');
const require = createRequire(path.join(sourceDir, 'package.json'));
const Ajv = require('ajv');
const addFormats = require('ajv-formats');
const schemas = require('ocpp-rpc/lib/schemas/ocpp2_0_1.json');
const program = process.env.MODEL_ROUNDTRIP;
// FUZZ_SEEDS=dir keeps one valid frame per message there (scripts/fuzz-seeds.sh makes the fuzz corpora of them).
const seedDir = process.env.FUZZ_SEEDS;
if (seedDir) mkdirSync(seedDir, { recursive: true });

// Deterministic, so a failure repeats; change SEED to explore.
let seed = Number(process.env.SEED || 20240501);
function rand() {
    seed = (seed * 1103515245 + 12345) & 0x7fffffff;
    return seed / 0x80000000;
}
const pick = (list) => list[Math.floor(rand() * list.length)];
const between = (lo, hi) => lo + Math.floor(rand() * (hi - lo + 1));

const PIECES = ['a', 'Z', '7', ' ', '"', '\\', '/', '\n', '\t', '\u0001', 'é', '中', '€', '😀', 'x'];

function makeString(maxLength, edge) {
    const limit = maxLength || 64;
    if (edge) return 'm'.repeat(limit); // exactly at the limit
    const want = between(1, Math.min(limit, 24));
    let s = '';
    while (true) {
        const next = s + pick(PIECES);
        if (Buffer.byteLength(next, 'utf8') > Math.min(limit, want + 3) || next.length > want) break;
        s = next;
    }
    return s || 'q';
}

function makeDateTime() {
    return new Date(Date.UTC(between(2000, 2037), between(0, 11), between(1, 28), between(0, 23), between(0, 59),
        between(0, 59), between(0, 999))).toISOString();
}

function makeNumber(node) {
    const lo = node.minimum ?? -100000;
    const hi = node.maximum ?? 100000;
    const shapes = [() => lo + rand() * (hi - lo), () => Math.round(lo + rand() * (hi - lo)),
        () => Math.min(hi, Math.max(lo, 1e-7 * between(1, 99))), () => Math.min(hi, Math.max(lo, 0.1)),
        () => Math.min(hi, Math.max(lo, 123456789.125))];
    return pick(shapes)();
}

function makeInteger(node) {
    const lo = node.minimum ?? -2147483648;
    const hi = node.maximum ?? 2147483647;
    const shapes = [() => between(Math.max(lo, 0), Math.min(hi, 1000)), () => between(Math.max(lo, -1000), Math.min(hi, 1000)),
        () => lo, () => hi];
    return pick(shapes)();
}

const deref = (node, defs) => (node.$ref ? defs[node.$ref.replace('#/definitions/', '')] : node);

// Builds one payload for `node` (mode: 'full' every member, 'minimal' only
// required ones) and, alongside, what the record must write back.
function generate(node, defs, mode, edge) {
    const same = (v) => ({ value: v, expected: v });
    if (node.$ref) return generate(deref(node, defs), defs, mode, edge);
    if (node.enum) return same(pick(node.enum));
    switch (node.type) {
        case 'object': {
            const value = {};
            const expected = {};
            const required = new Set(node.required || []);
            for (const [name, prop] of Object.entries(node.properties || {})) {
                if (mode === 'minimal' && !required.has(name)) continue;
                const g = generate(prop, defs, mode, edge);
                value[name] = g.value;
                if (name !== 'customData') expected[name] = g.expected;
            }
            if (node.additionalProperties !== false && mode === 'full') {
                value.vendorExtension = { anything: [1, 'two'] }; // custom data may carry more
            }
            return { value, expected };
        }
        case 'array': {
            const n = between(node.minItems ?? 0, Math.min(node.maxItems ?? 3, 3)) || 1;
            const items = [];
            for (let i = 0; i < n; i++) items.push(generate(node.items, defs, mode, edge));
            return { value: items.map((g) => g.value), expected: items.map((g) => g.expected) };
        }
        case 'string': return same(node.format === 'date-time' ? makeDateTime() : makeString(node.maxLength, edge));
        case 'integer': return same(makeInteger(node));
        case 'number': return same(makeNumber(node));
        case 'boolean': return same(rand() < 0.5);
        case undefined: // any JSON value
            return same(pick(['some text', 42, 1.5, true, { k: ['v', 2, { deep: null }] }, [1, 'a'], 'x"y\\z']));
        default:
            throw new Error(`unhandled schema type ${node.type}`);
    }
}

// Every member path in a full payload with the schema node that governs it.
function memberPaths(node, defs, value, prefix = []) {
    if (node.$ref) return memberPaths(deref(node, defs), defs, value, prefix);
    const out = [];
    if (node.type === 'object' && value && typeof value === 'object') {
        for (const [name, prop] of Object.entries(node.properties || {})) {
            if (!(name in value)) continue;
            const p = [...prefix, name];
            const resolved = deref(prop, defs);
            out.push({ path: p, node: resolved, required: (node.required || []).includes(name) });
            out.push(...memberPaths(resolved, defs, value[name], p));
        }
    } else if (node.type === 'array' && Array.isArray(value) && value.length) {
        const items = deref(node.items, defs);
        if (items.type !== 'object') out.push({ path: [...prefix, 0], node: items, required: true });
        out.push(...memberPaths(items, defs, value[0], [...prefix, 0]));
    }
    return out;
}

// Values of the wrong JSON type for a member, each of which must be refused.
function wrongValues(node) {
    if (node.enum) return [7, { v: 'Accepted' }];
    switch (node.type) {
        case 'string': return [123, ['text']];
        case 'integer': return ['12', 1.5, true];
        case 'number': return ['1.5', false];
        case 'boolean': return ['true', 0];
        case 'object': return ['{}', [{}], 3];
        case 'array': return [{}, 'x'];
        default: return []; // any JSON value is fine
    }
}

// JSON text that JSON.stringify cannot write, such as 3.0, stands in a payload as
// a marked string and is put in place in the text.
const RAW = '\u0000raw:';
const raw = (text) => RAW + text;
const payloadText = (value) => JSON.stringify(value).replace(/"\\u0000raw:([^"]*)"/g, '$1');

// Values at and around the rules of a member's schema, allowed or not.
function edgeValues(node, current) {
    if (node.enum) return [null, 'NotInTheList', node.enum[0].toLowerCase(), node.enum[0] + ' ', 7];
    switch (node.type) {
        case 'string': {
            if (node.format === 'date-time') {
                return [null, '2024-02-29T12:00:00Z', '2023-02-29T12:00:00Z', '2024-01-01T24:00:00Z',
                    '2024-01-01t23:59:60z', '2024-01-01T23:58:60Z', '2024-01-01 12:00:00.5+01:00',
                    '2024-01-01T12:00:00', '2024-01-01T12:00:00+0100', '2024-01-01T12:00:00+0', '2024-01-01T12:00:00.Z',
                    '2024-01-01\u00a012:00:00Z', '2024-1-01T12:00:00Z', '2024-01-01T12:00:00Z ', ''];
            }
            const out = [null, 5, ''];
            if (node.maxLength) {
                const n = node.maxLength;
                out.push('a'.repeat(n + 1), '\u00e9'.repeat(n), '\u00e9'.repeat(n + 1), '\u{1F600}'.repeat(n),
                    '\u{1F600}'.repeat(n + 1), '\u4e2d'.repeat(n - 1) + 'ab');
            }
            return out;
        }
        case 'integer': {
            const out = [null, 1.5, raw('3.0'), raw('1e20'), raw('-2.5e1'), '7', true];
            if (node.minimum !== undefined) out.push(node.minimum, node.minimum - 1);
            if (node.maximum !== undefined) out.push(node.maximum, node.maximum + 1);
            return out;
        }
        case 'number': {
            const out = [null, raw('1e308'), raw('-0.0'), '1', false];
            if (node.minimum !== undefined) out.push(node.minimum - 0.5);
            if (node.maximum !== undefined) out.push(node.maximum + 0.5);
            return out;
        }
        case 'boolean': return [null, 0, 'true'];
        case 'object': return [null, [], {}, { ...current, notInTheSchema: 1 }];
        case 'array': {
            const out = [null, [], {}];
            if (node.maxItems) out.push(Array(node.maxItems + 1).fill(current[0]), Array(node.maxItems).fill(current[0]));
            return out;
        }
        default: return [null, { any: ['thing'] }];
    }
}

function setAt(obj, p, v) {
    const copy = structuredClone(obj);
    let cur = copy;
    for (let i = 0; i < p.length - 1; i++) cur = cur[p[i]];
    if (v === undefined) delete cur[p[p.length - 1]];
    else cur[p[p.length - 1]] = v;
    return copy;
}

function messageOf(schema) {
    const [, action, kind] = schema.$id.match(/^urn:(\w+)\.(req|conf)$/);
    return { action, type: action + (kind === 'req' ? 'Request' : 'Response'), isRequest: kind === 'req' };
}

function frameFor(msg, id, payload) {
    return JSON.stringify(msg.isRequest ? [2, id, msg.action, payload] : [3, id, payload]);
}

// Drives the C++ program: one line out, one line back, in order.
class RoundTrip {
    constructor(file) {
        this.child = spawn(file, [], { stdio: ['pipe', 'pipe', 'inherit'] });
        this.waiting = [];
        this.rl = readline.createInterface({ input: this.child.stdout });
        this.rl.on('line', (line) => this.waiting.shift()(JSON.parse(line)));
        this.exited = new Promise((resolve) => this.child.on('exit', resolve));
    }
    send(line) {
        this.count = (this.count || 0) + 1;
        return new Promise((resolve) => {
            this.waiting.push(resolve);
            this.child.stdin.write(JSON.stringify(line) + '\n');
        });
    }
    check(msg, text) { return this.send({ check: msg.action, request: msg.isRequest, payload: text }); }
    run(type, frame) { return this.send({ type, frame }); }
}

const ajv = new Ajv({ strictSchema: false, allErrors: true });
addFormats(ajv);
let rt;

before(() => {
    assert.ok(program, 'MODEL_ROUNDTRIP must name the model_roundtrip program');
    rt = new RoundTrip(program);
});
after(async () => {
    console.log(`${rt.count} payloads driven through the records`);
    rt.child.stdin.end();
    const code = await rt.exited;
    assert.equal(code, 0, 'model_roundtrip must exit cleanly');
});

test('the schema file holds the 128 messages', () => {
    assert.equal(schemas.length, 128);
});

for (const schema of schemas) {
    const msg = messageOf(schema);
    const defs = schema.definitions || {};
    const validate = ajv.compile(schema);

    test(`${msg.type}: payloads read and written back unchanged and valid`, async () => {
        for (const [mode, edge] of [['full', false], ['full', false], ['full', false], ['full', true], ['minimal', false]]) {
            const g = generate(schema, defs, mode, edge);
            assert.ok(validate(g.value), `generated payload invalid: ${JSON.stringify(validate.errors)}`);
            const id = `id-${mode}-${between(1, 1e6)}`;
            if (seedDir && mode === 'full' && !edge) writeFileSync(path.join(seedDir, msg.type), frameFor(msg, id, g.value));
            const res = await rt.run(msg.type, frameFor(msg, id, g.value));
            assert.equal(res.threw, false, `${mode} payload refused: ${res.error}`);
            const head = msg.isRequest ? `[2,"${id}","${msg.action}",\n` : `[3,"${id}",\n`;
            assert.ok(res.out.startsWith(head), `header line: ${res.out.slice(0, 80)}`);
            const frame = JSON.parse(res.out);
            const payload = frame[frame.length - 1];
            assert.ok(validate(payload), `written payload invalid (${mode}): ${JSON.stringify(validate.errors)}\n${res.out}`);
            assert.deepEqual(payload, g.expected, `${mode} payload changed in the round trip`);
        }
    });

    test(`${msg.type}: a member of the wrong JSON type is refused, a null one is absent`, async () => {
        const g = generate(schema, defs, 'full', false);
        for (const { path: p, node, required } of memberPaths(schema, defs, g.value)) {
            for (const bad of wrongValues(node)) {
                const res = await rt.run(msg.type, frameFor(msg, 'w', setAt(g.value, p, bad)));
                assert.equal(res.threw, true, `${p.join('.')} = ${JSON.stringify(bad)} was accepted`);
            }
            if (!required && node.type !== undefined) {
                const res = await rt.run(msg.type, frameFor(msg, 'n', setAt(g.value, p, null)));
                assert.equal(res.threw, false, `${p.join('.')} = null refused: ${res.error}`);
                const out = JSON.parse(res.out);
                if (!p.includes('customData')) {
                    const expected = setAt(g.expected, p, undefined);
                    assert.deepEqual(out[out.length - 1], expected, `${p.join('.')} = null not read as absent`);
                }
            }
        }
    });

    test(`${msg.type}: the schema check agrees with the official validator`, async () => {
        const agree = async (text, what) => {
            const res = await rt.check(msg, text);
            const official = validate(JSON.parse(text));
            assert.equal(res.valid, official, `${what}: schema check says ${res.valid} (${res.why}), ` +
                `the official validator ${official} ${JSON.stringify(validate.errors)}\n${text.slice(0, 400)}`);
        };
        for (const [mode, edge] of [['full', false], ['full', true], ['minimal', false]]) {
            const g = generate(schema, defs, mode, edge);
            await agree(payloadText(g.value), `valid ${mode} payload`);
        }
        const g = generate(schema, defs, 'full', false);
        for (const bad of [[], 'text', {}, { ...g.value, notInTheSchema: true }]) {
            await agree(payloadText(bad), `payload ${JSON.stringify(bad).slice(0, 60)}`);
        }
        for (const { path: p, node } of memberPaths(schema, defs, g.value)) {
            let current = g.value;
            for (const k of p) current = current[k];
            await agree(payloadText(setAt(g.value, p, undefined)), `${p.join('.')} left out`);
            for (const v of edgeValues(node, current)) {
                await agree(payloadText(setAt(g.value, p, v)), `${p.join('.')} = ${JSON.stringify(v).slice(0, 60)}`);
            }
        }
    });
}
