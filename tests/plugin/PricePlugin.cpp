// A pricing plug-in: reads an Authorize answer of kind 3 and answers with a
// fixed reading that a test can recognise.
#include <PluginBase.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Ocpp20/PricePlugInRecords.h"

namespace {

class CPricePlugin : public PlugIn::CPluginBase {
public:
    void Destroy(void*) override { delete this; }
    int OnStart() override { return 1; }
    int OnStop() override { return 1; }
    void SetMessageCallBack(PlugIn::PluginMessageCallBack) override {}
    int SendAsyncMessage(const char*, int) override { return 0; }
    int SendSyncMessage(const char* data, int length, char* answer, int* answerLength) override {
        PriceAuthorizeRequestHead head;
        if (length < static_cast<int>(sizeof head) || *answerLength < static_cast<int>(sizeof(PriceAuthorizeAnswer)))
            return 0;
        std::memcpy(&head, data, sizeof head);
        const std::string text(data + sizeof head, static_cast<size_t>(length) - sizeof head);
        // Only an Authorize answer of the promised length is read.
        if (head.kind != kPriceAuthorizeKind || head.length != static_cast<int32_t>(text.size()) ||
            text.find("idTokenInfo") == std::string::npos)
            return 0;
        PriceAuthorizeAnswer reply;
        std::memset(&reply, 0, sizeof reply);
        reply.status = 1;  // Blocked, whatever the CSMS said
        reply.cacheExpiry = 1893456000;
        std::snprintf(reply.groupIdToken, sizeof reply.groupIdToken, "%s", "PRICEGRP");
        reply.hasPersonalMessage = 1;
        reply.messageFormat = 3;
        std::snprintf(reply.content, sizeof reply.content, "%s", "Price");
        reply.hasPriceMessage = 1;
        std::snprintf(reply.priceText, sizeof reply.priceText, "%s", "0.30/kWh");
        reply.lineCount = 1;
        std::snprintf(reply.lines[0].language, sizeof reply.lines[0].language, "%s", "en");
        std::snprintf(reply.lines[0].text, sizeof reply.lines[0].text, "%s", "peak");
        std::memcpy(answer, &reply, sizeof reply);
        *answerLength = sizeof reply;
        return 1;
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) PlugIn::CPluginBase* CreatePlugin(void) { return new CPricePlugin(); }
