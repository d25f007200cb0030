#pragma once
// Reading and writing helpers behind the generated message records.
#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Ocpp20/Protocol/Base.h"
#include "Ocpp20/Protocol/CustomException.h"
#include "Ocpp20/Protocol/JsonText.h"

namespace models {
namespace codec {

// Member lookup: null counts as absent.
const rapidjson::Value* Find(const rapidjson::Value& obj, const char* name);
void RequireObject(const rapidjson::Value& v, const char* type);
[[noreturn]] void WrongType(const char* name, const char* expected);

void ReadString(const rapidjson::Value& obj, const char* name, std::string& out);
void ReadInt(const rapidjson::Value& obj, const char* name, int32_t& out, bool& present);
void ReadNumber(const rapidjson::Value& obj, const char* name, double& out, bool& present);
void ReadBool(const rapidjson::Value& obj, const char* name, bool& out, bool& present);
// Any JSON value: a string is kept as its text, anything else as compact JSON with isJson set.
void ReadAny(const rapidjson::Value& obj, const char* name, std::string& out, bool& isJson);
void ReadIntArray(const rapidjson::Value& obj, const char* name, std::vector<int32_t>& out);
void ReadNumberArray(const rapidjson::Value& obj, const char* name, std::vector<double>& out);
void ReadStringArray(const rapidjson::Value& obj, const char* name, std::vector<std::string>& out);

template <class T>
void ReadObject(const rapidjson::Value& obj, const char* name, T& out, bool& present) {
    const rapidjson::Value* v = Find(obj, name);
    if (v == nullptr) return;
    if (!v->IsObject()) WrongType(name, "object");
    out = T(*v);
    present = true;
}

template <class T>
void ReadObject(const rapidjson::Value& obj, const char* name, T& out) {
    bool present = false;
    ReadObject(obj, name, out, present);
}

template <class T>
void ReadObjectArray(const rapidjson::Value& obj, const char* name, std::vector<T>& out) {
    const rapidjson::Value* v = Find(obj, name);
    if (v == nullptr) {
        out.clear();
        return;
    }
    if (!v->IsArray()) WrongType(name, "array");
    std::vector<T> items(v->Size());
    for (rapidjson::SizeType i = 0; i < v->Size(); ++i) {
        const rapidjson::Value& e = (*v)[i];
        if (!e.IsObject()) WrongType(name, "an array of objects");
        items[i] = T(e);
    }
    out.swap(items);
}

// Writes one object, one member per line, in the order the members are given.
class ObjectWriter {
public:
    ObjectWriter(std::string& out, const std::string& indent, const std::string& step);
    void String(const char* name, const std::string& v, size_t maxBytes);
    void Int(const char* name, int64_t v);
    void Number(const char* name, double v);
    void Bool(const char* name, bool v);
    void Any(const char* name, const std::string& v, bool isJson);
    void IntArray(const char* name, const std::vector<int32_t>& v);
    void NumberArray(const char* name, const std::vector<double>& v);
    void StringArray(const char* name, const std::vector<std::string>& v, size_t maxBytes);
    template <class T>
    void Object(const char* name, const T& v) {
        Key(name);
        WriteTo(m_out, v, m_inner, m_step);
    }
    template <class T>
    void ObjectArray(const char* name, const std::vector<T>& v) {
        Key(name);
        if (v.empty()) {
            m_out += "[]";
            return;
        }
        const std::string itemIndent = m_inner + m_step;
        m_out += "[\n";
        for (size_t i = 0; i < v.size(); ++i) {
            if (i) m_out += ",\n";
            WriteTo(m_out, v[i], itemIndent, m_step);
        }
        m_out.push_back('\n');
        m_out += m_inner;
        m_out.push_back(']');
    }
    void End();

private:
    void Key(const char* name);

    std::string& m_out;
    const std::string& m_indent;
    const std::string& m_step;
    std::string m_inner;
    bool m_first;
};

// Whole-frame reading shared by every top-level record: the frame is parsed
// once and the record read from its payload element, which gives the same
// record as reading the text NormalizeExtract returns.
template <class T>
T FromJsonData(const char* frame, unsigned int len) {
    T record;
    rapidjson::Document doc;
    const rapidjson::Value* body = Base::ParseFrame(doc, frame, len) ? record.base.TakeHeader(doc) : nullptr;
    const rapidjson::Value empty(rapidjson::kObjectType);
    return T(body != nullptr ? *body : empty, record.base);
}

std::string ReadWholeFile(const std::string& path);

template <class T>
std::vector<T> ArrayFromData(const char* text, unsigned int len) {
    if (text == nullptr || !CJsonText::DepthWithin(text, len)) throw CustomException("array text not readable");
    rapidjson::Document doc;
    doc.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(text, len);
    if (doc.HasParseError() || !doc.IsArray()) throw CustomException("text is not a JSON array");
    // Each element gets a header of its own, as a new record would.
    std::vector<T> out(doc.Size());
    for (rapidjson::SizeType i = 0; i < doc.Size(); ++i) out[i] = T(doc[i], out[i].base);
    return out;
}

// Enumeration tables: index <-> text, exact match.
std::string EnumText(const char* const* table, int count, int index);
int EnumIndex(const char* const* table, int count, const std::string& text);

}  // namespace codec
}  // namespace models
