#pragma once
// What the library and the pricing plug-in ("PlugInCaliforniaPrice") exchange
// about an Authorize answer: a request of kind 3 carries the raw answer, the
// plug-in reads it by its market's rules. Plain records, native byte order.
#include <stdint.h>

const int32_t kPriceAuthorizeKind = 3;
const int kPriceLines = 4;
#pragma pack(push, 1)
struct PriceAuthorizeRequestHead {
    int32_t kind;
    int32_t length;  // answer text that follows, at most 65535 bytes
};
struct PriceLine {
    char language[9];
    char text[513];
};
struct PriceAuthorizeAnswer {
    int32_t status;       // AuthorizationStatusEnumType order; 255 none
    int32_t cacheExpiry;  // Unix seconds; 0 absent
    char groupIdToken[37];
    int32_t hasPersonalMessage;
    int32_t messageFormat;
    char language[9];
    char content[513];
    int32_t hasPriceMessage;
    char priceText[256];
    int32_t lineCount;
    PriceLine lines[kPriceLines];
};
#pragma pack(pop)
static_assert(sizeof(PriceAuthorizeAnswer) == 2927, "the plug-in answer is read as raw bytes");
