#pragma once

#include <libwebsockets.h>

#include <exception>

#include "Util/Tools.h"

// Hands an lws event to the object stored as the context's user pointer.
// `role` names the side in the failure log ("client", "probe", "server").
template <typename Owner, typename Handler>
int DispatchLwsEvent(struct lws* wsi, enum lws_callback_reasons reason, const char* role, Handler handle) {
    lws_context* context = wsi != nullptr ? lws_get_context(wsi) : nullptr;
    Owner* owner = context != nullptr ? static_cast<Owner*>(lws_context_user(context)) : nullptr;
    if (owner == nullptr) return 0;
    // An exception unwinding into libwebsockets' C frames would abort the process.
    try {
        return handle(*owner);
    } catch (const std::exception& e) {
        LOG_ERROR("websocket %s event %d failed: %s", role, static_cast<int>(reason), e.what());
    } catch (...) {
        LOG_ERROR("websocket %s event %d failed", role, static_cast<int>(reason));
    }
    return 0;
}
