"""What the record generator and the validation generator share."""

import re


class SchemaError(Exception):
    pass


def message_name(schema_id):
    m = re.match(r"^urn:([A-Za-z0-9]+)\.(req|conf)$", schema_id)
    if not m:
        raise SchemaError("unexpected schema id %r" % schema_id)
    return m.group(1), (m.group(1) + ("Request" if m.group(2) == "req" else "Response"))


def ref_name(ref):
    prefix = "#/definitions/"
    if not ref.startswith(prefix):
        raise SchemaError("unsupported reference %r" % ref)
    return ref[len(prefix):]
