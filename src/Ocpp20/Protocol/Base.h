#pragma once
#include <OcppErrorCode.h>
#include <rapidjson/fwd.h>

#include <cstddef>
#include <cstdint>
#include <string>

// The RPC header every message record carries: what kind of frame it is, its
// id, and for a CALL the action, for a CALLERROR the error.
class Base {
public:
    enum { CALL = 2, CALLRESULT = 3, CALLERROR = 4 };

    Base();
    Base(int type, std::string id, std::string action);

    // "[2,"id","Action",\n", "[3,"id",\n", or for a CALLERROR the whole frame
    // "[4,"id","Code","Description",{details}]\n". The payload object goes after
    // the first two, followed by EndJson().
    std::string HeaderForJson() const;
    static std::string EndJson();

    // Reads a whole frame, fills type, id and action (a CALLERROR's code goes
    // to errorCode and its description, element 3, to errorDetails) and returns
    // the payload object as compact JSON: element 3 of a CALL, element 2 of a
    // CALLRESULT, "{}" otherwise. Where the compact writer ends with a newline
    // the text ends with a NUL byte instead (in place), so size() counts it.
    std::string NormalizeExtract(const char* frame, size_t len);
    std::string NormalizeExtract(const std::string& frame) { return NormalizeExtract(frame.data(), frame.size()); }

    // The two halves of NormalizeExtract, for readers that go on with the parsed
    // document instead of its text: parse the frame (false when it is not JSON or
    // nests too deep), then fill the header and return the payload object, or
    // nullptr where NormalizeExtract would give "{}".
    static bool ParseFrame(rapidjson::Document& doc, const char* frame, size_t len);
    const rapidjson::Value* TakeHeader(const rapidjson::Value& doc);

    // OCPP-J text of an error code ("FormatViolation" ... "TypeConstraintViolation"); "GenericError" when unknown.
    static const char* ErrorCodeText(int code);

    int32_t messageType;
    std::string messageId;
    std::string action;
    std::string errorCode;
    std::string errorDetails;      // JSON object text
    std::string errorDescription;
};
