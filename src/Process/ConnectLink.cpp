#include "Process/ConnectLink.h"

#include <pthread.h>

namespace {
// Set while a client's link event runs on that client's own thread.
thread_local int t_inLinkEvent = 0;

void* DeleteLinkProc(void* link) {
    delete static_cast<ConnectLink*>(link);
    return nullptr;
}

// A client cannot be closed from its own thread (it would join itself): if the
// last reference goes during a link event, another thread finishes it.
void DeleteLink(ConnectLink* link) {
    if (t_inLinkEvent > 0) {
        pthread_t thread;
        if (pthread_create(&thread, nullptr, DeleteLinkProc, link) == 0) {
            pthread_detach(thread);
            return;
        }
    }
    delete link;
}
}  // namespace

ConnectLink::EventScope::EventScope() { ++t_inLinkEvent; }
ConnectLink::EventScope::~EventScope() { --t_inLinkEvent; }

std::shared_ptr<ConnectLink> ConnectLink::Create() {
    return std::shared_ptr<ConnectLink>(new ConnectLink(), DeleteLink);
}
