#include "session/UserNotices.h"

#include <new>

#include "platform/Foundation.h"
#include "platform/Owned.h"

namespace {

struct Notice {
    Owned<CFStringRef> message;
    Owned<CFStringRef> informative;
};

void Show(void* context) {
    const auto* notice = static_cast<Notice*>(context);
    // The run loop's own code stands below, and nothing raised may pass through it.
    try {
        platform::RunWarningAlert(notice->message.Get(), notice->informative.Get(), CFSTR("OK"));
    } catch (...) {
    }
}

void Dispose(void* context) {
    delete static_cast<Notice*>(context);
}

}  // namespace

void NotifyUser(CFStringRef message, CFStringRef informative) {
    auto* notice = new (std::nothrow) Notice{Owned<CFStringRef>::Retain(message), Owned<CFStringRef>::Retain(informative)};
    if (notice) platform::RunLoopPerform(Show, notice, Dispose);
}

void NotifyWaitForQuit(void) {}
