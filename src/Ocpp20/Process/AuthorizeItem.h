#pragma once
#include <cstdint>
#include <cstring>

// One token of the authorization cache or of the local list; also the row image.
struct AuthorizeItem {
    char token[37];
    int32_t tokenType;   // IdTokenEnumType order
    int32_t status;      // AuthorizationStatusEnumType order; 255 none, or "remove" in a list update
    int32_t expiryTime;  // Unix seconds; 0 never expires
    char groupToken[37];

    bool IsSame(const AuthorizeItem& other) const {
        return std::strcmp(token, other.token) == 0 && tokenType == other.tokenType && status == other.status &&
               expiryTime == other.expiryTime && std::strcmp(groupToken, other.groupToken) == 0;
    }
};

// AuthorizationStatusEnumType values the decision uses by name.
enum { AUTHORIZESTATUS_ACCEPTED = 0, AUTHORIZESTATUS_EXPIRED = 3, AUTHORIZESTATUS_INVALID = 4,
       AUTHORIZESTATUS_NONE = 255 };
// IdTokenEnumType values the decision uses by name.
enum { IDTOKENTYPE_CENTRAL = 0, IDTOKENTYPE_NOAUTHORIZATION = 7 };
