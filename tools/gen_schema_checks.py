"""Turns the OCPP 2.0.1 message schemas into constant rule tables and one
validation function per message (ModelSchemas.cpp), run by
src/Ocpp20/Protocol/SchemaCheck.cpp. Run by gen_models.py; standard library only.

Only the keywords the schemas use are understood; any other keyword stops the
build, because ignoring it would let through payloads the schema refuses.
"""

import json

from schema_common import SchemaError, message_name, ref_name

# Keywords that never change a verdict: annotations, and additionalItems
# beside a single item schema (the validator ignores it there).
IGNORED = {"description", "default", "$schema", "$id", "$comment", "javaType", "additionalItems"}
KNOWN_FORMATS = {"date-time": "schema::kDateTime"}
MAX_MEMBERS = 64  # members seen are tracked in one 64-bit mask


class RuleSpec:
    """What one value must be: kind is string/integer/number/boolean/any/enum/object/array."""

    def __init__(self, kind, min_size=0, max_size=0, date_time=False, target=None, items=None,
                 minimum=None, maximum=None):
        self.kind = kind
        self.min_size = min_size      # string code points or array items
        self.max_size = max_size      # 0: no bound
        self.date_time = date_time
        self.target = target          # definition name of an object or enumeration
        self.items = items            # RuleSpec of array items
        self.minimum = minimum
        self.maximum = maximum

    def __repr__(self):
        return "RuleSpec(%s)" % ", ".join("%s=%r" % kv for kv in sorted(vars(self).items()) if kv[1])


def _only(node, allowed, where):
    extra = set(node) - set(allowed) - IGNORED
    if extra:
        raise SchemaError("%s: keywords %s are not checked by the validator" % (where, sorted(extra)))


def _size(node, key, where):
    v = node.get(key, 0)
    if not isinstance(v, int) or isinstance(v, bool) or v < 0:
        raise SchemaError("%s: %s must be a non-negative integer" % (where, key))
    return v


def _bound(node, key, where):
    v = node.get(key)
    if v is not None and (isinstance(v, bool) or not isinstance(v, (int, float))):
        raise SchemaError("%s: %s must be a number" % (where, key))
    return v


def rule_of(node, definitions, where):
    """The RuleSpec of one property or item schema."""
    if "$ref" in node:
        _only(node, {"$ref"}, where)
        target = ref_name(node["$ref"])
        d = definitions.get(target)
        if d is None:
            raise SchemaError("%s refers to unknown %s" % (where, target))
        if "enum" in d:
            _only(d, {"type", "enum"}, target)
            if d.get("type") != "string" or not all(isinstance(v, str) for v in d["enum"]):
                raise SchemaError("enumeration %s is not a list of strings" % target)
            return RuleSpec("enum", target=target)
        if d.get("type") == "object":
            return RuleSpec("object", target=target)
        raise SchemaError("%s refers to %s, neither object nor enumeration" % (where, target))
    t = node.get("type")
    if t is None:
        _only(node, set(), where)
        return RuleSpec("any")
    if t == "string":
        _only(node, {"type", "maxLength", "minLength", "format"}, where)
        fmt = node.get("format")
        if fmt is not None and fmt not in KNOWN_FORMATS:
            raise SchemaError("%s: format %r is not checked by the validator" % (where, fmt))
        return RuleSpec("string", _size(node, "minLength", where), _size(node, "maxLength", where),
                        date_time=fmt == "date-time")
    if t in ("integer", "number"):
        _only(node, {"type", "minimum", "maximum"}, where)
        return RuleSpec(t, minimum=_bound(node, "minimum", where), maximum=_bound(node, "maximum", where))
    if t == "boolean":
        _only(node, {"type"}, where)
        return RuleSpec("boolean")
    if t == "array":
        _only(node, {"type", "items", "minItems", "maxItems"}, where)
        items = node.get("items")
        if not isinstance(items, dict):
            raise SchemaError("%s: array items must be one schema" % where)
        return RuleSpec("array", _size(node, "minItems", where), _size(node, "maxItems", where),
                        items=rule_of(items, definitions, where + "[]"))
    raise SchemaError("%s: type %r is not checked by the validator" % (where, t))


class ShapeSpec:
    """An object schema: its members in schema order, which are required, and
    whether members it does not name are refused."""

    def __init__(self, name, members, closed):
        self.name = name
        self.members = members        # [(name, required, RuleSpec)]
        self.closed = closed


def shape_of(node, definitions, name, top=False):
    allowed = {"type", "properties", "required", "additionalProperties"}
    if top:
        allowed |= {"definitions"}
    _only(node, allowed, name)
    if node.get("type") != "object":
        raise SchemaError("%s is not an object schema" % name)
    extra = node.get("additionalProperties", True)
    if extra not in (True, False):
        raise SchemaError("%s: additionalProperties must be true or false" % name)
    props = node.get("properties", {})
    required = node.get("required", [])
    missing = set(required) - set(props)
    if missing:
        raise SchemaError("%s requires unknown members %s" % (name, sorted(missing)))
    if len(props) > MAX_MEMBERS:
        raise SchemaError("%s has more than %d members" % (name, MAX_MEMBERS))
    members = [(p, p in required, rule_of(props[p], definitions, "%s.%s" % (name, p))) for p in props]
    return ShapeSpec(name, members, extra is False)


class Tables:
    """Every object shape reached from the messages, each after the shapes it uses."""

    def __init__(self, schemas, definitions):
        self.definitions = definitions
        self.order = []
        self.shapes = {}
        self.messages = []   # (action, message, is_request, ShapeSpec)
        for schema in schemas:
            action, msg = message_name(schema.get("$id", ""))
            shape = shape_of(schema, definitions, msg, top=True)
            self._visit_members(shape, [msg])
            self.messages.append((action, msg, msg.endswith("Request"), shape))

    def _visit_members(self, shape, path):
        for _, _, rule in shape.members:
            while rule.kind == "array":
                rule = rule.items
            if rule.kind == "object":
                self._visit(rule.target, path)

    def _visit(self, name, path):
        if name in self.shapes:
            if self.shapes[name] is None:
                raise SchemaError("recursive definitions: %s" % " -> ".join(path + [name]))
            return
        self.shapes[name] = None
        shape = shape_of(self.definitions[name], self.definitions, name)
        self._visit_members(shape, path + [name])
        self.shapes[name] = shape
        self.order.append(shape)


def _number(v):
    return repr(float(v))


class Emitter:
    def __init__(self, tables):
        self.tables = tables
        self.out = []
        self.values = {}     # enumeration values tuple -> table name
        self.bounds = {}     # (minimum, maximum) -> table name
        self.items = 0

    def enum_table(self, target):
        values = tuple(self.tables.definitions[target]["enum"])
        if values not in self.values:
            name = "kValues%d" % len(self.values)
            self.values[values] = name
            self.out.append("const char* const %s[] = {%s};" % (name, ", ".join(json.dumps(v) for v in values)))
        return self.values[values], len(values)

    def rule(self, r):
        """C++ initializer of a Rule; item rules and tables it needs are emitted first."""
        if r.kind == "any":
            return "schema::Any()"
        if r.kind == "boolean":
            return "schema::Boolean()"
        if r.kind == "string":
            flags = KNOWN_FORMATS["date-time"] if r.date_time else "0"
            return "schema::String(%d, %d, %s)" % (r.min_size, r.max_size, flags)
        if r.kind == "enum":
            table, count = self.enum_table(r.target)
            return "schema::Enum(%s, %d)" % (table, count)
        if r.kind in ("integer", "number"):
            fn = "schema::Integer" if r.kind == "integer" else "schema::Number"
            if r.minimum is None and r.maximum is None:
                return "%s()" % fn
            key = (r.minimum, r.maximum)
            if key not in self.bounds:
                name = "kBounds%d" % len(self.bounds)
                self.bounds[key] = name
                self.out.append("const double %s[] = {%s, %s};" % (
                    name, _number(r.minimum if r.minimum is not None else 0),
                    _number(r.maximum if r.maximum is not None else 0)))
            return "%s(%s, %s, %s)" % (fn, self.bounds[key], "true" if r.minimum is not None else "false",
                                       "true" if r.maximum is not None else "false")
        if r.kind == "object":
            return "schema::Object(kDef%s)" % r.target
        if r.kind == "array":
            inner = self.rule(r.items)
            name = "kItems%d" % self.items
            self.items += 1
            self.out.append("const schema::Rule %s = %s;" % (name, inner))
            return "schema::Array(%s, %d, %d)" % (name, r.min_size, r.max_size)
        raise SchemaError("no rule for %r" % r)

    def shape(self, shape, cpp_name):
        """Definitions are kDef<Name>, messages kMsg<Name>, so the two never clash."""
        rows = ['    {"%s", %s, %s},' % (n, "true" if req else "false", self.rule(r)) for n, req, r in shape.members]
        closed = "true" if shape.closed else "false"
        if rows:
            self.out.append("const schema::Member %sMembers[] = {" % cpp_name)
            self.out.extend(rows)
            self.out.append("};")
            self.out.append("const schema::Shape %s = {%sMembers, %d, %s};" % (cpp_name, cpp_name, len(rows), closed))
        else:
            self.out.append("const schema::Shape %s = {nullptr, 0, %s};" % (cpp_name, closed))


HEAD = """// Generated by tools/gen_models.py from the OCPP 2.0.1 JSON schemas. Do not edit.
#include <cstring>

#include "Ocpp20/Protocol/SchemaCheck.h"
#include "models/Models.h"

namespace models {

namespace {
"""


def emit_checks(schemas, definitions):
    """The text of ModelSchemas.cpp."""
    tables = Tables(schemas, definitions)
    e = Emitter(tables)
    for shape in tables.order:
        e.shape(shape, "kDef" + shape.name)
    for _, msg, _, shape in tables.messages:
        e.shape(shape, "kMsg" + msg)
    body = e.out
    out = [HEAD] + body + ["", "}  // namespace", ""]
    for _, msg, _, _ in tables.messages:
        out.append("bool Validate%s(const rapidjson::Value& payload, std::string* why) {" % msg)
        out.append("    return schema::CheckPayload(kMsg%s, payload, why);" % msg)
        out.append("}")
    actions = {}
    for action, msg, is_request, _ in tables.messages:
        actions.setdefault(action, [None, None])[0 if is_request else 1] = "Validate" + msg
    out.append("")
    out.append("namespace {")
    out.append("struct ActionRow {")
    out.append("    const char* action;")
    out.append("    PayloadValidator request;")
    out.append("    PayloadValidator response;")
    out.append("};")
    out.append("// Sorted by action name for a binary search.")
    out.append("const ActionRow kActions[] = {")
    for action in sorted(actions, key=lambda a: a.encode("utf-8")):
        req, resp = actions[action]
        out.append('    {"%s", %s, %s},' % (action, req or "nullptr", resp or "nullptr"))
    out.append("};")
    out.append("")
    out.append("const ActionRow* FindAction(const char* action) {")
    out.append("    if (action == nullptr) return nullptr;")
    out.append("    size_t lo = 0, hi = sizeof(kActions) / sizeof(kActions[0]);")
    out.append("    while (lo < hi) {")
    out.append("        const size_t mid = (lo + hi) / 2;")
    out.append("        const int c = std::strcmp(action, kActions[mid].action);")
    out.append("        if (c == 0) return &kActions[mid];")
    out.append("        if (c < 0) hi = mid; else lo = mid + 1;")
    out.append("    }")
    out.append("    return nullptr;")
    out.append("}")
    out.append("}  // namespace")
    out.append("")
    out.append("bool IsOcppAction(const char* action) { return FindAction(action) != nullptr; }")
    out.append("")
    out.append("PayloadValidator FindPayloadValidator(const char* action, bool request) {")
    out.append("    const ActionRow* row = FindAction(action);")
    out.append("    if (row == nullptr) return nullptr;")
    out.append("    return request ? row->request : row->response;")
    out.append("}")
    out.append("")
    out.append("}  // namespace models")
    return "\n".join(out) + "\n"
