"""Checks of the message record generator's own logic."""

import copy
import json
import os
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))

import gen_models as g  # noqa: E402
import gen_schema_checks as c  # noqa: E402

SOURCE_DIR = os.environ.get("OCPP_SOURCE_DIR", os.path.dirname(os.path.dirname(HERE)))
SCHEMA_FILE = os.path.join(SOURCE_DIR, "node_modules", "ocpp-rpc", "lib", "schemas", "ocpp2_0_1.json")

CUSTOM = {"type": "object", "properties": {"vendorId": {"type": "string", "maxLength": 255}}, "required": ["vendorId"]}


def message(urn, properties, required=(), definitions=None):
    return {
        "$id": urn, "type": "object", "additionalProperties": False,
        "definitions": dict({"CustomDataType": CUSTOM}, **(definitions or {})),
        "properties": dict({"customData": {"$ref": "#/definitions/CustomDataType"}}, **properties),
        "required": list(required),
    }


def every_enum_schema():
    """One message that defines every enumeration the library names, so the
    enumeration table can be satisfied by a small schema set."""
    defs = {}
    for definition in set(g.ENUM_NAMES.values()):
        defs[definition] = {"type": "string", "enum": ["A", "B"]}
    return message("urn:Everything.req", {}, definitions=defs)


def renamed_definitions():
    defs = {}
    for definition in list(g.TYPE_NAMES) + list(g.TYPE_ALIASES.values()):
        defs[definition] = {"type": "object", "properties": {"x": {"type": "integer"}}}
    return message("urn:Renamed.req", {}, definitions=defs)


def small_set(*extra):
    return [every_enum_schema(), renamed_definitions()] + list(extra)


class Naming(unittest.TestCase):
    def test_leading_acronyms_are_lowered_as_one_word(self):
        self.assertEqual(g.record_name("ACChargingParametersType"), "acChargingParameters")
        self.assertEqual(g.record_name("EVSEType"), "evse")
        self.assertEqual(g.record_name("OCSPRequestDataType"), "ocspRequestData")
        self.assertEqual(g.record_name("APNType"), "apn")
        self.assertEqual(g.record_name("IdTokenInfoType"), "idTokenInfo")
        self.assertEqual(g.record_name("AuthorizationData"), "authorizationData")

    def test_message_names_come_from_the_schema_id(self):
        self.assertEqual(g.message_name("urn:BootNotification.req"), ("BootNotification", "BootNotificationRequest"))
        self.assertEqual(g.message_name("urn:Get15118EVCertificate.conf"),
                         ("Get15118EVCertificate", "Get15118EVCertificateResponse"))
        with self.assertRaises(g.SchemaError):
            g.message_name("urn:BootNotificationRequest")


class TypeMapping(unittest.TestCase):
    DEFS = {"XEnumType": {"type": "string", "enum": ["a"]}, "YType": {"type": "object", "properties": {}}}

    def kind(self, prop):
        m = g.classify("p", prop, False, self.DEFS)
        return (m.kind, m.item_kind, m.max_length, m.target)

    def test_each_json_type_maps_to_its_member_kind(self):
        self.assertEqual(self.kind({"type": "string", "maxLength": 36}), ("string", None, 36, None))
        self.assertEqual(self.kind({"type": "string", "format": "date-time"}), ("string", None, 0, None))
        self.assertEqual(self.kind({"type": "integer"}), ("int", None, 0, None))
        self.assertEqual(self.kind({"type": "number"}), ("number", None, 0, None))
        self.assertEqual(self.kind({"type": "boolean"}), ("bool", None, 0, None))
        self.assertEqual(self.kind({"$ref": "#/definitions/XEnumType"}), ("enum", None, 0, "XEnumType"))
        self.assertEqual(self.kind({"$ref": "#/definitions/YType"}), ("object", None, 0, "YType"))
        self.assertEqual(self.kind({"description": "anything"}), ("any", None, 0, None))

    def test_arrays_know_their_item_kind(self):
        self.assertEqual(self.kind({"type": "array", "items": {"type": "integer"}}), ("array", "int", 0, None))
        self.assertEqual(self.kind({"type": "array", "items": {"type": "string", "maxLength": 512}}),
                         ("array", "string", 512, None))
        self.assertEqual(self.kind({"type": "array", "items": {"$ref": "#/definitions/YType"}}),
                         ("array", "object", 0, "YType"))
        self.assertEqual(self.kind({"type": "array", "items": {"$ref": "#/definitions/XEnumType"}}),
                         ("array", "enum", 0, "XEnumType"))

    def test_shapes_the_records_cannot_hold_stop_the_build(self):
        for prop in ({"type": "object", "properties": {}}, {"type": "string", "enum": ["a"]},
                     {"$ref": "#/definitions/Missing"}, {"type": "array", "items": {"type": "boolean"}},
                     {"type": ["string", "null"]}):
            with self.assertRaises(g.SchemaError, msg=json.dumps(prop)):
                g.classify("p", prop, False, self.DEFS)

    def test_member_names_that_are_not_cpp_names_stop_the_build(self):
        for name in ("delete", "base", "my-name"):
            with self.assertRaises(g.SchemaError):
                g.members_of({"properties": {name: {"type": "integer"}}}, {}, "T")


class Writing(unittest.TestCase):
    def test_strings_are_cut_to_their_schema_length(self):
        m = g.Member("idToken", "string", True, max_length=36)
        self.assertEqual(g.write_statement(m), 'w.String("idToken", x.idToken, 36);')
        m = g.Member("location", "array", False, max_length=512, item_kind="string")
        self.assertIn("512", g.write_statement(m))
        m = g.Member("currentTime", "string", True)
        self.assertEqual(g.write_statement(m), 'w.String("currentTime", x.currentTime, 0);')

    def test_optional_members_are_written_only_when_set(self):
        self.assertEqual(g.write_statement(g.Member("serialNumber", "string", False, max_length=25)),
                         'if (!x.serialNumber.empty()) w.String("serialNumber", x.serialNumber, 25);')
        self.assertEqual(g.write_statement(g.Member("modem", "object", False, target="ModemType")),
                         'if (x.modem_present) w.Object("modem", x.modem);')
        self.assertEqual(g.write_statement(g.Member("evseId", "int", False)),
                         'if (x.evseId_present || x.evseId != -1) w.Int("evseId", x.evseId);')
        self.assertEqual(g.write_statement(g.Member("evseId", "int", True)), 'w.Int("evseId", x.evseId);')


class Definitions(unittest.TestCase):
    def test_same_definition_in_two_messages_is_one_type(self):
        a = message("urn:A.req", {}, definitions={"ZType": {"type": "object", "description": "one",
                                                            "properties": {"v": {"type": "integer"}}}})
        b = copy.deepcopy(a)
        b["$id"] = "urn:A.conf"
        b["definitions"]["ZType"]["description"] = "worded differently"
        self.assertIn("ZType", g.collect_definitions([a, b]))

    def test_definitions_that_differ_stop_the_build_naming_both_messages(self):
        a = message("urn:A.req", {}, definitions={"ZType": {"type": "object", "properties": {"v": {"type": "integer"}}}})
        b = message("urn:B.req", {}, definitions={"ZType": {"type": "object", "properties": {"v": {"type": "number"}}}})
        with self.assertRaises(g.SchemaError) as ctx:
            g.collect_definitions([a, b])
        self.assertIn("urn:A.req", str(ctx.exception))
        self.assertIn("urn:B.req", str(ctx.exception))

    def test_enumerations_with_different_values_stop_the_build(self):
        a = message("urn:A.req", {}, definitions={"QEnumType": {"type": "string", "enum": ["x", "y"]}})
        b = message("urn:B.req", {}, definitions={"QEnumType": {"type": "string", "enum": ["y", "x"]}})
        with self.assertRaises(g.SchemaError):
            g.collect_definitions([a, b])


class EnumerationNames(unittest.TestCase):
    def test_a_listed_name_without_schema_enumeration_stops_the_build(self):
        schemas = small_set()
        del schemas[0]["definitions"]["BootReasonEnumType"]
        with self.assertRaises(g.SchemaError) as ctx:
            g.Model(schemas)
        self.assertIn("BootReason", str(ctx.exception))

    def test_message_members_give_their_own_function_names(self):
        boot = message("urn:BootNotification.conf", {"status": {"$ref": "#/definitions/RegistrationStatusEnumType"}},
                       definitions={"RegistrationStatusEnumType": {"type": "string",
                                                                   "enum": ["Accepted", "Pending", "Rejected"]}})
        model = g.Model(small_set(boot))
        self.assertEqual(model.enum_functions["BootNotificationResponseStatus"], ["Accepted", "Pending", "Rejected"])
        self.assertEqual(model.enum_functions["RegistrationStatus"], ["Accepted", "Pending", "Rejected"])

    def test_one_name_for_two_different_enumerations_stops_the_build(self):
        # "XStatus" from the definition XStatusEnumType, and again from message X's member "status".
        x = message("urn:X.req", {"status": {"$ref": "#/definitions/OtherEnumType"}},
                    definitions={"OtherEnumType": {"type": "string", "enum": ["p"]},
                                 "XRequestStatusEnumType": {"type": "string", "enum": ["q"]}})
        with self.assertRaises(g.SchemaError):
            g.Model(small_set(x))


class Generation(unittest.TestCase):
    def test_records_contain_their_parts_first(self):
        defs = {"OuterType": {"type": "object", "properties": {"inner": {"$ref": "#/definitions/InnerType"}}},
                "InnerType": {"type": "object", "properties": {"v": {"type": "integer"}}}}
        model = g.Model(small_set(message("urn:M.req", {"o": {"$ref": "#/definitions/OuterType"}}, definitions=defs)))
        order = [r.definition for r in model.ordered_objects()]
        self.assertLess(order.index("InnerType"), order.index("OuterType"))

    def test_recursive_definitions_stop_the_build(self):
        defs = {"LoopType": {"type": "object", "properties": {"me": {"$ref": "#/definitions/LoopType"}}}}
        model = g.Model(small_set(message("urn:M.req", {}, definitions=defs)))
        with self.assertRaises(g.SchemaError):
            model.ordered_objects()

    def test_generated_files_are_written_and_left_alone_when_unchanged(self):
        with tempfile.TemporaryDirectory() as tmp:
            schema_path = os.path.join(tmp, "s.json")
            with open(schema_path, "w") as f:
                json.dump(small_set(message("urn:Reset.req", {"evseId": {"type": "integer"}})), f)
            out = os.path.join(tmp, "out")
            g.generate(schema_path, out, 2)
            with open(os.path.join(out, "Models.h"), encoding="utf-8") as f:
                header = f.read()
            self.assertIn("struct resetRequest_t {", header)
            self.assertIn('inline constexpr char actionReset_t[] = "Reset";', header)
            self.assertIn("resetRequest_t ResetRequestFromJsonData(const char* frame, unsigned int len);", header)
            before = os.stat(os.path.join(out, "ModelsPart0.cpp")).st_mtime_ns
            g.generate(schema_path, out, 2)
            self.assertEqual(os.stat(os.path.join(out, "ModelsPart0.cpp")).st_mtime_ns, before)


class SchemaChecks(unittest.TestCase):
    DEFS = {"XEnumType": {"type": "string", "enum": ["a", "b"]}, "YType": {"type": "object", "properties": {}}}

    def rule(self, prop):
        return c.Emitter(c.Tables([], self.DEFS)).rule(c.rule_of(prop, self.DEFS, "p"))

    def test_each_rule_reaches_the_table(self):
        self.assertEqual(self.rule({"type": "string", "maxLength": 36}), "schema::String(0, 36, 0)")
        self.assertEqual(self.rule({"type": "string", "format": "date-time"}), "schema::String(0, 0, schema::kDateTime)")
        self.assertEqual(self.rule({"type": "integer", "default": 0}), "schema::Integer()")
        # A bound of 0 is still a bound.
        self.assertEqual(self.rule({"type": "integer", "minimum": 0}), "schema::Integer(kBounds0, true, false)")
        self.assertEqual(self.rule({"type": "number", "maximum": 100}), "schema::Number(kBounds0, false, true)")
        self.assertEqual(self.rule({"type": "array", "items": {"$ref": "#/definitions/XEnumType"}, "minItems": 1,
                                    "maxItems": 4, "additionalItems": False}), "schema::Array(kItems0, 1, 4)")

    def test_keywords_the_check_does_not_apply_stop_the_build(self):
        for prop in ({"type": "string", "pattern": "^a"}, {"type": "string", "format": "email"},
                     {"type": "number", "multipleOf": 0.1}, {"type": "integer", "exclusiveMinimum": 0},
                     {"type": "object", "properties": {}}, {"type": ["string", "null"]},
                     {"$ref": "#/definitions/YType", "maxLength": 3}, {"anyOf": [{"type": "string"}]},
                     {"type": "array", "items": [{"type": "string"}]}):
            with self.assertRaises(g.SchemaError, msg=json.dumps(prop)):
                c.rule_of(prop, self.DEFS, "p")
        with self.assertRaises(g.SchemaError):
            c.shape_of({"type": "object", "properties": {}, "additionalProperties": {"type": "string"}}, {}, "T")

    def test_shapes_come_after_the_shapes_they_use_and_actions_are_sorted_for_search(self):
        defs = {"OuterType": {"type": "object", "properties": {"inner": {"type": "array",
                                                                         "items": {"$ref": "#/definitions/InnerType"}}}},
                "InnerType": {"type": "object", "properties": {"v": {"type": "integer"}}, "required": ["v"],
                              "additionalProperties": False}}
        schemas = [message("urn:b.req", {"o": {"$ref": "#/definitions/OuterType"}}, definitions=defs),
                   message("urn:Z.req", {}), message("urn:Z.conf", {}), message("urn:a.conf", {})]
        text = c.emit_checks(schemas, g.collect_definitions(schemas))
        self.assertLess(text.index("const schema::Shape kDefInnerType = {kDefInnerTypeMembers, 1, true};"),
                        text.index("kDefOuterTypeMembers[]"))
        rows = [line.strip() for line in text.splitlines() if line.startswith('    {"') and "Validate" in line]
        self.assertEqual(rows, ['{"Z", ValidateZRequest, ValidateZResponse},',
                                '{"a", nullptr, ValidateaResponse},', '{"b", ValidatebRequest, nullptr},'])

    def test_recursive_definitions_stop_the_build(self):
        defs = {"LoopType": {"type": "object", "properties": {"me": {"type": "array",
                                                                     "items": {"$ref": "#/definitions/LoopType"}}}}}
        schemas = [message("urn:M.req", {"l": {"$ref": "#/definitions/LoopType"}}, definitions=defs)]
        with self.assertRaises(g.SchemaError):
            c.emit_checks(schemas, g.collect_definitions(schemas))


@unittest.skipUnless(os.path.exists(SCHEMA_FILE), "schemas not installed (npm ci)")
class PublishedSchemas(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(SCHEMA_FILE, encoding="utf-8") as f:
            cls.model = g.Model(json.load(f))

    def test_all_messages_and_sub_objects_the_library_names_exist(self):
        self.assertEqual(len(self.model.messages), 128)
        names = {r.cpp for r in self.model.objects.values()} | set(self.model.aliases)
        wanted = """acChargingParameters additionalInfo apn attributeStatusInfo certificateHashDataChain
            certificateHashData chargingLimit chargingNeeds chargingProfileCriteria chargingProfile
            chargingSchedulePeriod chargingSchedule chargingStation clearChargingProfile clearMonitoringResult
            component connectionData customData customerCertificate dcChargingParameters display eventData evse
            firmware getVariableResult groupIdToken idTokenInfo idToken log messageContent messageInfo meterValue
            modem monitor ocspRequestData relativeTimeInterval reportData salesTariff sampledValue schedule
            setMonitoringResult setVariableResult signedMeterValue statusInfo transactionInfo unitOfMeasure
            variableAttribute variableCharacteristics variableMonitoring variable vpn""".split()
        self.assertEqual(len(wanted), 51)
        self.assertEqual(sorted(set(wanted) - names), [])

    def test_enumeration_functions_the_library_calls_exist(self):
        for name in ("BootReason", "BootNotificationResponseStatus", "OperationalStatus", "ResetType",
                     "IdTokenType", "ChargingProfilePurpose", "RequstStartStopStatus", "SecurityEventType"):
            self.assertIn(name, self.model.enum_functions)
        self.assertEqual(self.model.enum_functions["BootReason"][3], "PowerUp")


if __name__ == "__main__":
    unittest.main()
