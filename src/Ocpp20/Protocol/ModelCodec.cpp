#include "Ocpp20/Protocol/ModelCodec.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>

namespace models {
namespace codec {

const rapidjson::Value* Find(const rapidjson::Value& obj, const char* name) {
    const auto it = obj.FindMember(name);
    if (it == obj.MemberEnd() || it->value.IsNull()) return nullptr;
    return &it->value;
}

void RequireObject(const rapidjson::Value& v, const char* type) {
    if (!v.IsObject()) throw CustomException(std::string(type) + ": payload is not a JSON object");
}

void WrongType(const char* name, const char* expected) {
    throw CustomException(std::string("\"") + name + "\" is not " + expected);
}

void ReadString(const rapidjson::Value& obj, const char* name, std::string& out) {
    const auto it = obj.FindMember(name);
    if (it == obj.MemberEnd()) return;
    if (it->value.IsNull()) {
        out.clear();
        return;
    }
    if (!it->value.IsString()) WrongType(name, "a string");
    out.assign(it->value.GetString(), it->value.GetStringLength());
}

// An integer that fits 32 bits; 5.0 counts, as it does in JSON.
static bool AsInt32(const rapidjson::Value& v, int32_t& out) {
    if (v.IsInt()) {
        out = v.GetInt();
        return true;
    }
    if (v.IsDouble()) {
        const double d = v.GetDouble();
        if (std::trunc(d) == d && d >= INT32_MIN && d <= INT32_MAX) {
            out = static_cast<int32_t>(d);
            return true;
        }
    }
    return false;
}

void ReadInt(const rapidjson::Value& obj, const char* name, int32_t& out, bool& present) {
    const rapidjson::Value* v = Find(obj, name);
    if (v == nullptr) return;
    if (!AsInt32(*v, out)) WrongType(name, "a 32-bit integer");
    present = true;
}

void ReadNumber(const rapidjson::Value& obj, const char* name, double& out, bool& present) {
    const rapidjson::Value* v = Find(obj, name);
    if (v == nullptr) return;
    if (!v->IsNumber()) WrongType(name, "a number");
    out = v->GetDouble();
    present = true;
}

void ReadBool(const rapidjson::Value& obj, const char* name, bool& out, bool& present) {
    const rapidjson::Value* v = Find(obj, name);
    if (v == nullptr) return;
    if (!v->IsBool()) WrongType(name, "a boolean");
    out = v->GetBool();
    present = true;
}

void ReadAny(const rapidjson::Value& obj, const char* name, std::string& out, bool& isJson) {
    const auto it = obj.FindMember(name);
    if (it == obj.MemberEnd()) return;
    const rapidjson::Value& v = it->value;
    if (v.IsNull()) {
        out.clear();
        isJson = false;
    } else if (v.IsString()) {
        out.assign(v.GetString(), v.GetStringLength());
        isJson = false;
    } else {
        rapidjson::StringBuffer sb;
        rapidjson::Writer<rapidjson::StringBuffer> w(sb);
        v.Accept(w);
        out.assign(sb.GetString(), sb.GetSize());
        isJson = true;
    }
}

template <class T, class Check, class Get>
static void ReadScalarArray(const rapidjson::Value& obj, const char* name, std::vector<T>& out, Check check,
                            Get get, const char* expected) {
    const rapidjson::Value* v = Find(obj, name);
    if (v == nullptr) {
        out.clear();
        return;
    }
    if (!v->IsArray()) WrongType(name, "an array");
    std::vector<T> items;
    items.reserve(v->Size());
    for (const auto& e : v->GetArray()) {
        if (!check(e)) WrongType(name, expected);
        items.push_back(get(e));
    }
    out.swap(items);
}

void ReadIntArray(const rapidjson::Value& obj, const char* name, std::vector<int32_t>& out) {
    int32_t value = 0;
    ReadScalarArray<int32_t>(
        obj, name, out, [&value](const rapidjson::Value& e) { return AsInt32(e, value); },
        [&value](const rapidjson::Value&) { return value; }, "an array of 32-bit integers");
}

void ReadNumberArray(const rapidjson::Value& obj, const char* name, std::vector<double>& out) {
    ReadScalarArray<double>(
        obj, name, out, [](const rapidjson::Value& e) { return e.IsNumber(); },
        [](const rapidjson::Value& e) { return e.GetDouble(); }, "an array of numbers");
}

void ReadStringArray(const rapidjson::Value& obj, const char* name, std::vector<std::string>& out) {
    ReadScalarArray<std::string>(
        obj, name, out, [](const rapidjson::Value& e) { return e.IsString(); },
        [](const rapidjson::Value& e) { return std::string(e.GetString(), e.GetStringLength()); },
        "an array of strings");
}

ObjectWriter::ObjectWriter(std::string& out, const std::string& indent, const std::string& step)
    : m_out(out), m_indent(indent), m_step(step), m_inner(indent + step), m_first(true) {
    m_out += indent;
    m_out += "{\n";
}

void ObjectWriter::Key(const char* name) {
    if (!m_first) m_out += ",\n";
    m_first = false;
    m_out += m_inner;
    m_out.push_back('"');
    m_out += name;
    m_out += "\": ";
}

void ObjectWriter::String(const char* name, const std::string& v, size_t maxBytes) {
    Key(name);
    CJsonText::AppendString(m_out, v, maxBytes);
}

void ObjectWriter::Int(const char* name, int64_t v) {
    Key(name);
    CJsonText::AppendInt(m_out, v);
}

void ObjectWriter::Number(const char* name, double v) {
    Key(name);
    CJsonText::AppendNumber(m_out, v);
}

void ObjectWriter::Bool(const char* name, bool v) {
    Key(name);
    m_out += v ? "true" : "false";
}

void ObjectWriter::Any(const char* name, const std::string& v, bool isJson) {
    Key(name);
    if (isJson && CJsonText::DepthWithin(v.data(), v.size())) {
        rapidjson::Document d;
        d.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(v.data(), v.size());
        if (!d.HasParseError()) {
            rapidjson::StringBuffer sb;
            rapidjson::Writer<rapidjson::StringBuffer> w(sb);
            d.Accept(w);
            m_out.append(sb.GetString(), sb.GetSize());
            return;
        }
    }
    // Not JSON after all: sent as a string rather than breaking the frame.
    CJsonText::AppendString(m_out, v);
}

void ObjectWriter::IntArray(const char* name, const std::vector<int32_t>& v) {
    Key(name);
    m_out.push_back('[');
    for (size_t i = 0; i < v.size(); ++i) {
        if (i) m_out += ", ";
        CJsonText::AppendInt(m_out, v[i]);
    }
    m_out.push_back(']');
}

void ObjectWriter::NumberArray(const char* name, const std::vector<double>& v) {
    Key(name);
    m_out.push_back('[');
    for (size_t i = 0; i < v.size(); ++i) {
        if (i) m_out += ", ";
        CJsonText::AppendNumber(m_out, v[i]);
    }
    m_out.push_back(']');
}

void ObjectWriter::StringArray(const char* name, const std::vector<std::string>& v, size_t maxBytes) {
    Key(name);
    m_out.push_back('[');
    for (size_t i = 0; i < v.size(); ++i) {
        if (i) m_out += ", ";
        CJsonText::AppendString(m_out, v[i], maxBytes);
    }
    m_out.push_back(']');
}

void ObjectWriter::End() {
    if (!m_first) m_out.push_back('\n');
    m_out += m_indent;
    m_out.push_back('}');
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::string();
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string EnumText(const char* const* table, int count, int index) {
    if (index < 0 || index >= count) return std::string();
    return table[index];
}

int EnumIndex(const char* const* table, int count, const std::string& text) {
    for (int i = 0; i < count; ++i) {
        if (text == table[i]) return i;
    }
    return -1;
}

}  // namespace codec
}  // namespace models
