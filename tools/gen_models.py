#!/usr/bin/env python3
"""Generates the OCPP 2.0.1 message records (namespace models) from the
published JSON schemas.

    gen_models.py SCHEMA_JSON OUT_DIR [--parts N]

Writes Models.h, ModelsEnums.cpp, ModelsPart<i>.cpp, ModelSchemas.cpp (the
payload validation, see gen_schema_checks.py) and ModelTable.inc (a
name -> read/write table that only the tests include). Standard library only.
Any surprise in the schemas stops the build with a message: the records are
only right if the schemas look the way this script expects.
"""

import argparse
import json
import os
import re
import sys

import gen_schema_checks
from schema_common import SchemaError, message_name, ref_name


# Record names that differ from the schema definition name.
TYPE_NAMES = {
    "ChargingProfileCriterionType": "chargingProfileCriteria",
    "LogParametersType": "log",
    "CompositeScheduleType": "schedule",
    "NetworkConnectionProfileType": "connectionData",
    "TransactionType": "transactionInfo",
    "MonitoringDataType": "monitor",
}

# Second names under which a record is also known (same type, typedef).
TYPE_ALIASES = {
    "display": "ComponentType",
    "attributeStatusInfo": "StatusInfoType",
    "groupIdToken": "IdTokenType",
    "customerCertificate": "CertificateHashDataType",
}

# Enumeration function names the library uses, mapped to schema enumerations.
ENUM_NAMES = {
    "Attribute": "AttributeEnumType",
    "BootReason": "BootReasonEnumType",
    "CancelReservationStatus": "CancelReservationStatusEnumType",
    "CertificateAction": "CertificateActionEnumType",
    "CertificateIdUse": "GetCertificateIdUseEnumType",
    "CertificateSignedStatus": "CertificateSignedStatusEnumType",
    "CertificateSigningUse": "CertificateSigningUseEnumType",
    "ChangeAvailabilityStatus": "ChangeAvailabilityStatusEnumType",
    "ChargingLimitSource": "ChargingLimitSourceEnumType",
    "ChargingProfileStatus": "ChargingProfileStatusEnumType",
    "ChargingRateUnit": "ChargingRateUnitEnumType",
    "ChargingState": "ChargingStateEnumType",
    "ClearCacheStatus": "ClearCacheStatusEnumType",
    "ClearChargingProfileStatus": "ClearChargingProfileStatusEnumType",
    "ClearDisplayMessageResponseStatus": "ClearMessageStatusEnumType",
    "ClearMonitoringStatus": "ClearMonitoringStatusEnumType",
    "ConnectorStatus": "ConnectorStatusEnumType",
    "Context": "ReadingContextEnumType",
    "CostKind": "CostKindEnumType",
    "CustomerInformationStatus": "CustomerInformationStatusEnumType",
    "DataTransferStatus": "DataTransferStatusEnumType",
    "DataType": "DataEnumType",
    "DeleteCertificateStatus": "DeleteCertificateStatusEnumType",
    "DisplayMessageStatus": "DisplayMessageStatusEnumType",
    "EnergyTransferMode": "EnergyTransferModeEnumType",
    "EventNotification": "EventNotificationEnumType",
    "EventTrigger": "EventTriggerEnumType",
    "FirmwareStatus": "FirmwareStatusEnumType",
    "GenericDeviceModelStatus": "GenericDeviceModelStatusEnumType",
    "GenericStatus": "GenericStatusEnumType",
    "GetChargingProfilesStatus": "GetChargingProfileStatusEnumType",
    "HashAlgorithm": "HashAlgorithmEnumType",
    "IdtokenType": "IdTokenEnumType",
    "IdTokenType": "IdTokenEnumType",
    "InstallCertificateStatus": "InstallCertificateStatusEnumType",
    "InstalledCertificateStatus": "GetInstalledCertificateStatusEnumType",
    "Location": "LocationEnumType",
    "LogStatus": "LogStatusEnumType",
    "Measurand": "MeasurandEnumType",
    "MessageFormat": "MessageFormatEnumType",
    "MessagePriority": "MessagePriorityEnumType",
    "MessageState": "MessageStateEnumType",
    "MonitorType": "MonitorEnumType",
    "Mutability": "MutabilityEnumType",
    "Phase": "PhaseEnumType",
    "PublishFirmwareStatus": "PublishFirmwareStatusEnumType",
    "RequstStartStopStatus": "RequestStartStopStatusEnumType",
    "ReservationUpdateStatus": "ReservationUpdateStatusEnumType",
    "ReserveNowStatus": "ReserveNowStatusEnumType",
    "ResetStatus": "ResetStatusEnumType",
    "ResetType": "ResetEnumType",
    "SetMonitoringResultStatus": "SetMonitoringStatusEnumType",
    "SetMonitoringStatus": "SetMonitoringStatusEnumType",
    "SetNetworkProfileStatus": "SetNetworkProfileStatusEnumType",
    "SetVariableResult": "SetVariableStatusEnumType",
    "StoppedReason": "ReasonEnumType",
    "TriggerMessageStatus": "TriggerMessageStatusEnumType",
    "TriggerReason": "TriggerReasonEnumType",
    "UnlockStatus": "UnlockStatusEnumType",
    "UnpublishFirmwareStatus": "UnpublishFirmwareStatusEnumType",
    "UpdateFirmwareStatus": "UpdateFirmwareStatusEnumType",
    "UploadLogStatus": "UploadLogStatusEnumType",
    "VariableStatus": "SetVariableStatusEnumType",
}

# Value lists the schemas leave open (a free string there) but the library
# converts: the security event names and the library's variable modes.
SUPPLEMENT_ENUMS = {
    "SecurityEventType": [
        "FirmwareUpdated", "FailedToAuthenticateAtCsms", "CsmsFailedToAuthenticate", "SettingSystemTime",
        "StartupOfTheDevice", "ResetOrReboot", "SecurityLogWasCleared", "ReconfigurationOfSecurityParameters",
        "MemoryExhaustion", "InvalidMessages", "AttemptedReplayAttacks", "TamperDetectionActivated",
        "InvalidFirmwareSignature", "InvalidFirmwareSigningCertificate", "InvalidCsmsCertificate",
        "InvalidChargingStationCertificate", "InvalidTLSVersion", "InvalidTLSCipherSuite",
        "MaintenanceLoginAccepted", "MaintenanceLoginFailed",
    ],
    "VariableMode": ["ReadWrite", "ReadOnly", "WriteOnly"],
}

CPP_RESERVED = {
    "alignas", "alignof", "and", "asm", "auto", "bool", "break", "case", "catch", "char", "class", "const",
    "constexpr", "continue", "default", "delete", "do", "double", "else", "enum", "explicit", "export", "extern",
    "false", "float", "for", "friend", "goto", "if", "inline", "int", "long", "mutable", "namespace", "new",
    "noexcept", "not", "nullptr", "operator", "or", "private", "protected", "public", "register", "return",
    "short", "signed", "sizeof", "static", "struct", "switch", "template", "this", "throw", "true", "try",
    "typedef", "typeid", "typename", "union", "unsigned", "using", "virtual", "void", "volatile", "while",
    "xor", "base",
}


# ----------------------------------------------------------------------------
# Names


def lower_first_word(name):
    """'ACChargingParameters' -> 'acChargingParameters', 'EVSE' -> 'evse',
    'BootNotificationRequest' -> 'bootNotificationRequest'."""
    m = re.match(r"^([A-Z]+)(?=[A-Z][a-z]|$)", name)
    if m and len(m.group(1)) > 1:
        return m.group(1).lower() + name[len(m.group(1)):]
    return name[:1].lower() + name[1:]


def record_name(definition):
    if definition in TYPE_NAMES:
        return TYPE_NAMES[definition]
    base = definition[:-4] if definition.endswith("Type") else definition
    return lower_first_word(base)


def enum_base_name(definition):
    if not definition.endswith("EnumType"):
        raise SchemaError("enumeration %s does not end in EnumType" % definition)
    return definition[: -len("EnumType")]


def upper_first(name):
    return name[:1].upper() + name[1:]


# ----------------------------------------------------------------------------
# Schema model


def strip_descriptions(node):
    if isinstance(node, dict):
        return {k: strip_descriptions(v) for k, v in node.items() if k != "description"}
    if isinstance(node, list):
        return [strip_descriptions(v) for v in node]
    return node


def collect_definitions(schemas):
    """Definitions by name; a name defined differently in two messages is an error
    (descriptions aside), since one record type serves them all."""
    found = {}
    where = {}
    for schema in schemas:
        for name, definition in schema.get("definitions", {}).items():
            plain = strip_descriptions(definition)
            if name in found and found[name] != plain:
                raise SchemaError(
                    "definition %s differs between %s and %s" % (name, where[name], schema.get("$id")))
            found.setdefault(name, plain)
            where.setdefault(name, schema.get("$id"))
    return found


class Member:
    """One property: kind is string, int, number, bool, enum, object, any, or
    array with item_kind string/int/number/object."""

    def __init__(self, name, kind, required, max_length=0, target=None, item_kind=None):
        self.name = name
        self.kind = kind
        self.required = required
        self.max_length = max_length
        self.target = target          # definition name for enum/object (and object items)
        self.item_kind = item_kind

    def __repr__(self):
        return "Member(%s,%s,%s)" % (self.name, self.kind, self.item_kind)


def classify(name, prop, required, definitions):
    if "$ref" in prop:
        target = ref_name(prop["$ref"])
        if target not in definitions:
            raise SchemaError("%s refers to unknown %s" % (name, target))
        d = definitions[target]
        if "enum" in d:
            return Member(name, "enum", required, target=target)
        if d.get("type") == "object":
            return Member(name, "object", required, target=target)
        raise SchemaError("%s refers to %s, neither object nor enumeration" % (name, target))
    if "enum" in prop:
        raise SchemaError("%s: inline enumerations are not supported" % name)
    t = prop.get("type")
    if t is None:
        return Member(name, "any", required)
    if t == "string":
        return Member(name, "string", required, max_length=int(prop.get("maxLength", 0)))
    if t == "integer":
        return Member(name, "int", required)
    if t == "number":
        return Member(name, "number", required)
    if t == "boolean":
        return Member(name, "bool", required)
    if t == "array":
        items = prop.get("items", {})
        if "$ref" in items:
            inner = classify(name, items, True, definitions)
            return Member(name, "array", required, target=inner.target, item_kind=inner.kind)
        it = items.get("type")
        kinds = {"string": "string", "integer": "int", "number": "number"}
        if it not in kinds:
            raise SchemaError("%s: unsupported array item %r" % (name, items))
        return Member(name, "array", required, max_length=int(items.get("maxLength", 0)), item_kind=kinds[it])
    if t == "object":
        raise SchemaError("%s: inline objects are not supported" % name)
    raise SchemaError("%s: unsupported type %r" % (name, t))


def members_of(obj, definitions, owner):
    required = set(obj.get("required", []))
    props = obj.get("properties", {})
    unknown = required - set(props)
    if unknown:
        raise SchemaError("%s requires unknown members %s" % (owner, sorted(unknown)))
    out = []
    for name, prop in props.items():
        if not re.match(r"^[A-Za-z_][A-Za-z0-9_]*$", name) or name in CPP_RESERVED:
            raise SchemaError("%s: member name %r cannot be a C++ member" % (owner, name))
        out.append(classify(name, prop, name in required, definitions))
    return out


class Record:
    def __init__(self, cpp, definition, members, message=None, action=None, is_request=False):
        self.cpp = cpp                # e.g. bootNotificationRequest (without _t)
        self.definition = definition  # schema definition name, or message name for top level
        self.members = members
        self.message = message        # "BootNotificationRequest" for top-level
        self.action = action
        self.is_request = is_request


class Model:
    def __init__(self, schemas):
        if not isinstance(schemas, list):
            raise SchemaError("the schema file must hold a JSON array")
        self.definitions = collect_definitions(schemas)
        self.enums = {n: d["enum"] for n, d in self.definitions.items() if "enum" in d}
        for n, values in self.enums.items():
            if self.definitions[n].get("type") != "string" or not all(isinstance(v, str) for v in values):
                raise SchemaError("enumeration %s is not a list of strings" % n)
        self.objects = {}
        names = {}
        for n, d in self.definitions.items():
            if "enum" in d:
                continue
            if d.get("type") != "object":
                raise SchemaError("definition %s is neither object nor enumeration" % n)
            cpp = record_name(n)
            if cpp in names:
                raise SchemaError("%s and %s would both be %s_t" % (n, names[cpp], cpp))
            names[cpp] = n
            self.objects[n] = Record(cpp, n, members_of(d, self.definitions, n))
        for src in TYPE_NAMES:
            if src not in self.objects:
                raise SchemaError("renamed definition %s is not in the schemas" % src)
        self.aliases = {}
        for alias, target in TYPE_ALIASES.items():
            if target not in self.objects:
                raise SchemaError("alias %s_t names missing definition %s" % (alias, target))
            if alias in names:
                raise SchemaError("alias %s_t clashes with a record" % alias)
            self.aliases[alias] = self.objects[target].cpp
        self.messages = []
        seen = set()
        for schema in schemas:
            action, msg = message_name(schema.get("$id", ""))
            if msg in seen:
                raise SchemaError("message %s appears twice" % msg)
            seen.add(msg)
            if schema.get("type") != "object":
                raise SchemaError("%s is not an object schema" % msg)
            # Top-level names only lower their first letter: get15118EVCertificateRequest_t.
            rec = Record(msg[:1].lower() + msg[1:], msg, members_of(schema, self.definitions, msg),
                         message=msg, action=action, is_request=msg.endswith("Request"))
            if rec.cpp in names:
                raise SchemaError("message %s clashes with a sub-object name" % msg)
            self.messages.append(rec)
        self.enum_functions = self._enum_functions()

    def _enum_functions(self):
        """Function base name -> value list, from the listed names, the
        definition names and the enumeration members of each message."""
        funcs = {}
        origin = {}

        def add(name, values, source):
            if name in funcs and funcs[name] != values:
                raise SchemaError("enumeration function %s would mean both %s and %s" % (name, origin[name], source))
            funcs[name] = values
            origin.setdefault(name, source)

        for name, definition in ENUM_NAMES.items():
            if definition not in self.enums:
                raise SchemaError("enumeration %s: schema has no %s" % (name, definition))
            add(name, self.enums[definition], definition)
        for name, values in SUPPLEMENT_ENUMS.items():
            add(name, values, "supplement")
        for definition, values in self.enums.items():
            add(enum_base_name(definition), values, definition)
        for rec in self.messages:
            for m in rec.members:
                if m.kind == "enum":
                    add(rec.message + upper_first(m.name), self.enums[m.target], m.target)
        return funcs

    def ordered_objects(self):
        """Sub-object records, each after the records it contains."""
        done = []
        state = {}

        def visit(n, path):
            if state.get(n) == "done":
                return
            if state.get(n) == "busy":
                raise SchemaError("recursive definitions: %s" % " -> ".join(path + [n]))
            state[n] = "busy"
            for m in self.objects[n].members:
                if m.kind == "object" or (m.kind == "array" and m.item_kind == "object"):
                    visit(m.target, path + [n])
            state[n] = "done"
            done.append(self.objects[n])

        for n in sorted(self.objects):
            visit(n, [])
        return done


# ----------------------------------------------------------------------------
# C++ text


def cpp_type(model, m):
    if m.kind in ("string", "enum", "any"):
        return "std::string"
    if m.kind == "int":
        return "int32_t"
    if m.kind == "number":
        return "double"
    if m.kind == "bool":
        return "bool"
    if m.kind == "object":
        return model.objects[m.target].cpp + "_t"
    if m.kind == "array":
        inner = {"string": "std::string", "enum": "std::string", "int": "int32_t", "number": "double"}.get(m.item_kind)
        if m.item_kind == "object":
            inner = model.objects[m.target].cpp + "_t"
        return "std::vector<%s>" % inner
    raise SchemaError("no C++ type for %r" % m)


def member_declarations(model, m):
    t = cpp_type(model, m)
    if m.kind == "int":
        lines = ["%s %s = -1;" % (t, m.name)]
    elif m.kind == "number":
        lines = ["%s %s = -1;" % (t, m.name)]
    elif m.kind == "bool":
        lines = ["%s %s = false;" % (t, m.name)]
    else:
        lines = ["%s %s;" % (t, m.name)]
    if m.kind in ("int", "number", "bool", "object"):
        lines.append("bool %s_present = false;" % m.name)
    if m.kind == "any":
        lines.append("bool %s_json = false;  // holds JSON text rather than a string" % m.name)
    return lines


def read_statement(model, m):
    n = m.name
    if m.kind in ("string",):
        return 'codec::ReadString(v, "%s", %s);' % (n, n)
    if m.kind == "enum":
        return 'codec::ReadString(v, "%s", %s);' % (n, n)
    if m.kind == "int":
        return 'codec::ReadInt(v, "%s", %s, %s_present);' % (n, n, n)
    if m.kind == "number":
        return 'codec::ReadNumber(v, "%s", %s, %s_present);' % (n, n, n)
    if m.kind == "bool":
        return 'codec::ReadBool(v, "%s", %s, %s_present);' % (n, n, n)
    if m.kind == "any":
        return 'codec::ReadAny(v, "%s", %s, %s_json);' % (n, n, n)
    if m.kind == "object":
        return 'codec::ReadObject(v, "%s", %s, %s_present);' % (n, n, n)
    if m.kind == "array":
        fn = {"int": "ReadIntArray", "number": "ReadNumberArray", "string": "ReadStringArray", "enum": "ReadStringArray",
              "object": "ReadObjectArray"}[m.item_kind]
        return 'codec::%s(v, "%s", %s);' % (fn, n, n)
    raise SchemaError("cannot read %r" % m)


def write_statement(m, var="x"):
    """The writer call for one member, or None for members never written."""
    n = m.name
    if n == "customData":
        return None
    f = "%s.%s" % (var, n)
    if m.kind in ("string", "enum"):
        call = 'w.String("%s", %s, %d);' % (n, f, m.max_length)
        return call if m.required else "if (!%s.empty()) %s" % (f, call)
    if m.kind == "int":
        call = 'w.Int("%s", %s);' % (n, f)
        return call if m.required else "if (%s_present || %s != -1) %s" % (f, f, call)
    if m.kind == "number":
        call = 'w.Number("%s", %s);' % (n, f)
        return call if m.required else "if (%s_present || %s != -1) %s" % (f, f, call)
    if m.kind == "bool":
        call = 'w.Bool("%s", %s);' % (n, f)
        return call if m.required else "if (%s_present || %s) %s" % (f, f, call)
    if m.kind == "any":
        call = 'w.Any("%s", %s, %s_json);' % (n, f, f)
        return call if m.required else "if (%s_json || !%s.empty()) %s" % (f, f, call)
    if m.kind == "object":
        call = 'w.Object("%s", %s);' % (n, f)
        return call if m.required else "if (%s_present) %s" % (f, call)
    if m.kind == "array":
        if m.item_kind == "object":
            call = 'w.ObjectArray("%s", %s);' % (n, f)
        elif m.item_kind in ("string", "enum"):
            call = 'w.StringArray("%s", %s, %d);' % (n, f, m.max_length)
        elif m.item_kind == "int":
            call = 'w.IntArray("%s", %s);' % (n, f)
        else:
            call = 'w.NumberArray("%s", %s);' % (n, f)
        return call if m.required else "if (!%s.empty()) %s" % (f, call)
    raise SchemaError("cannot write %r" % m)


HEADER_TOP = """// Generated by tools/gen_models.py from the OCPP 2.0.1 JSON schemas. Do not edit.
#pragma once
#include <rapidjson/fwd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Ocpp20/Protocol/Base.h"
#include "Ocpp20/Protocol/CustomException.h"

namespace models {
"""


def emit_header(model):
    out = [HEADER_TOP]
    out.append("// Action names.")
    for rec in model.messages:
        if rec.is_request:
            out.append('inline constexpr char action%s_t[] = "%s";' % (rec.action, rec.action))
    out.append("")
    out.append("// Enumerations: index <-> text in schema order; unknown text gives -1, unknown index \"\".")
    for name in sorted(model.enum_functions):
        out.append("std::string Get%sInString(int index);" % name)
        out.append("int Get%sInInt(const std::string& text);" % name)
    out.append("")
    for rec in model.ordered_objects():
        t = rec.cpp + "_t"
        out.append("struct %s {" % t)
        for m in rec.members:
            for line in member_declarations(model, m):
                out.append("    " + line)
        out.append("    %s() = default;" % t)
        out.append("    explicit %s(const rapidjson::Value& v);" % t)
        out.append("};")
        out.append("void WriteTo(std::string& out, const %s& x, const std::string& indent, const std::string& step);" % t)
        out.append("std::string to_string(const %s& x, std::string indent, std::string step);" % t)
        out.append("")
    for alias in sorted(model.aliases):
        out.append("typedef %s_t %s_t;" % (model.aliases[alias], alias))
    out.append("")
    for rec in model.messages:
        t = rec.cpp + "_t"
        out.append("struct %s {" % t)
        out.append("    Base base;")
        for m in rec.members:
            for line in member_declarations(model, m):
                out.append("    " + line)
        out.append("    %s();" % t)
        out.append("    %s(const rapidjson::Value& payload, Base header);" % t)
        out.append("};")
        out.append("void WriteTo(std::string& out, const %s& x, const std::string& indent, const std::string& step);" % t)
        out.append("std::string to_string(const %s& x, std::string indent, std::string step);" % t)
        out.append("%s %sFromJsonData(const char* frame, unsigned int len);" % (t, rec.message))
        out.append("%s %sFromFile(std::string path);" % (t, rec.message))
        out.append("std::vector<%s> %sArrayFromData(const char* text, unsigned int len);" % (t, rec.message))
        out.append("bool Validate%s(const rapidjson::Value& payload, std::string* why);" % rec.message)
        out.append("")
    out.append("}  // namespace models")
    return "\n".join(out) + "\n"


CPP_TOP = """// Generated by tools/gen_models.py from the OCPP 2.0.1 JSON schemas. Do not edit.
#include "models/Models.h"

#include "Ocpp20/Protocol/ModelCodec.h"
#include "Util/Tools.h"

namespace models {
"""


def emit_object_code(model, rec, top):
    t = rec.cpp + "_t"
    out = []
    if top:
        # An answer takes the id of the request it answers; only a request needs a new one.
        if rec.is_request:
            out.append("%s::%s() : base(Base::CALL, CTools::GetUuid(), \"%s\") {}" % (t, t, rec.action))
        else:
            out.append("%s::%s() : base(Base::CALLRESULT, std::string(), \"%s\") {}" % (t, t, rec.action))
        out.append("")
        out.append("%s::%s(const rapidjson::Value& v, Base header) : base(std::move(header)) {" % (t, t))
    else:
        out.append("%s::%s(const rapidjson::Value& v) {" % (t, t))
    out.append('    codec::RequireObject(v, "%s");' % (rec.message or rec.definition))
    for m in rec.members:
        out.append("    " + read_statement(model, m))
    out.append("}")
    out.append("")
    out.append("void WriteTo(std::string& out, const %s& x, const std::string& indent, const std::string& step) {" % t)
    out.append("    codec::ObjectWriter w(out, indent, step);")
    unused = True
    for m in rec.members:
        s = write_statement(m)
        if s:
            out.append("    " + s)
            unused = False
    if unused:
        out.append("    (void)x;")
    out.append("    w.End();")
    out.append("}")
    out.append("")
    out.append("std::string to_string(const %s& x, std::string indent, std::string step) {" % t)
    out.append("    std::string out;")
    if top:
        out.append("    out.reserve(512);")
        out.append("    out += indent;")
        out.append("    out += x.base.HeaderForJson();")
        out.append("    if (x.base.messageType == Base::CALLERROR) return out;  // the header is the whole frame")
        out.append("    WriteTo(out, x, indent, step);")
        out.append("    out += Base::EndJson();")
    else:
        out.append("    WriteTo(out, x, indent, step);")
    out.append("    return out;")
    out.append("}")
    out.append("")
    if top:
        msg = rec.message
        out.append("%s %sFromJsonData(const char* frame, unsigned int len) {" % (t, msg))
        out.append("    return codec::FromJsonData<%s>(frame, len);" % t)
        out.append("}")
        out.append("")
        out.append("%s %sFromFile(std::string path) {" % (t, msg))
        out.append("    const std::string text = codec::ReadWholeFile(path);")
        out.append("    return codec::FromJsonData<%s>(text.data(), static_cast<unsigned int>(text.size()));" % t)
        out.append("}")
        out.append("")
        out.append("std::vector<%s> %sArrayFromData(const char* text, unsigned int len) {" % (t, msg))
        out.append("    return codec::ArrayFromData<%s>(text, len);" % t)
        out.append("}")
        out.append("")
    return out


def emit_parts(model, parts):
    units = [(rec, False) for rec in model.ordered_objects()] + [(rec, True) for rec in model.messages]
    # Spread by member count so the parts take about the same time to compile.
    weights = [(sum(2 if m.kind in ("object", "array") else 1 for m in rec.members) + (8 if top else 2), i)
               for i, (rec, top) in enumerate(units)]
    buckets = [[] for _ in range(parts)]
    loads = [0] * parts
    for w, i in sorted(weights, reverse=True):
        k = loads.index(min(loads))
        buckets[k].append(i)
        loads[k] += w
    files = []
    for k in range(parts):
        out = [CPP_TOP]
        for i in sorted(buckets[k]):
            rec, top = units[i]
            out.extend(emit_object_code(model, rec, top))
        out.append("}  // namespace models")
        files.append("\n".join(out) + "\n")
    return files


def emit_enums(model):
    out = ["// Generated by tools/gen_models.py from the OCPP 2.0.1 JSON schemas. Do not edit.",
           '#include "models/Models.h"', "", '#include "Ocpp20/Protocol/ModelCodec.h"', "",
           "namespace models {", "", "namespace {"]
    tables = {}
    for name in sorted(model.enum_functions):
        values = tuple(model.enum_functions[name])
        if values not in tables:
            tables[values] = "kEnum%d" % len(tables)
            out.append("const char* const %s[] = {%s};" % (
                tables[values], ", ".join(json.dumps(v) for v in values)))
    out.append("}  // namespace")
    out.append("")
    for name in sorted(model.enum_functions):
        values = tuple(model.enum_functions[name])
        tab = tables[values]
        out.append("std::string Get%sInString(int index) { return codec::EnumText(%s, %d, index); }" % (
            name, tab, len(values)))
        out.append("int Get%sInInt(const std::string& text) { return codec::EnumIndex(%s, %d, text); }" % (
            name, tab, len(values)))
    out.append("")
    out.append("}  // namespace models")
    return "\n".join(out) + "\n"


def emit_table(model):
    out = ["// Generated by tools/gen_models.py: every top-level record by message name (tests only)."]
    for rec in model.messages:
        out.append('{"%s", [](const char* f, unsigned int n, const std::string& indent, const std::string& step) '
                   '{ return models::to_string(models::%sFromJsonData(f, n), indent, step); }},'
                   % (rec.message, rec.message))
    return "\n".join(out) + "\n"


def write_if_changed(path, text):
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return
    except OSError:
        pass
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8") as f:
        f.write(text)
    os.replace(tmp, path)


def generate(schema_path, out_dir, parts):
    with open(schema_path, encoding="utf-8") as f:
        schemas = json.load(f)
    model = Model(schemas)
    os.makedirs(out_dir, exist_ok=True)
    write_if_changed(os.path.join(out_dir, "Models.h"), emit_header(model))
    write_if_changed(os.path.join(out_dir, "ModelsEnums.cpp"), emit_enums(model))
    for k, text in enumerate(emit_parts(model, parts)):
        write_if_changed(os.path.join(out_dir, "ModelsPart%d.cpp" % k), text)
    write_if_changed(os.path.join(out_dir, "ModelTable.inc"), emit_table(model))
    checks = gen_schema_checks.emit_checks(schemas, model.definitions)
    write_if_changed(os.path.join(out_dir, "ModelSchemas.cpp"), checks)
    return model


def main(argv):
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("schema")
    p.add_argument("out_dir")
    p.add_argument("--parts", type=int, default=4)
    args = p.parse_args(argv)
    try:
        model = generate(args.schema, args.out_dir, args.parts)
    except (SchemaError, OSError, ValueError) as e:
        print("gen_models: %s" % e, file=sys.stderr)
        return 1
    print("gen_models: %d messages, %d sub-objects (+%d aliases), %d enumeration functions" % (
        len(model.messages), len(model.objects), len(model.aliases), len(model.enum_functions)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
