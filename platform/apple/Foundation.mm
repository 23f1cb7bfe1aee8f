// The main run loop and the alert as messages to objects.

#include "platform/Foundation.h"

#import <AppKit/AppKit.h>

#include <memory>

#if __has_feature(objc_arc)
#error "written for manual reference counts"
#endif

namespace platform {

void RunLoopPerform(void (*work)(void*), void* context, void (*release)(void*)) {
    @autoreleasepool {
        // The block's copy holds the context and lets go of it when the block is destroyed, run or not.
        const std::shared_ptr<void> held(context, [release](void* object) {
            if (release) release(object);
        });
        [[NSRunLoop mainRunLoop] performBlock:^{
          work(held.get());
        }];
    }
}

void RunWarningAlert(CFStringRef message, CFStringRef informative, CFStringRef button) {
    @autoreleasepool {
        NSAlert* alert = [[NSAlert alloc] init];
        [alert setAlertStyle:NSAlertStyleWarning];
        [alert setMessageText:message ? (NSString*)message : @""];
        [alert setInformativeText:informative ? (NSString*)informative : @""];
        [alert setShowsHelp:NO];
        [alert addButtonWithTitle:button ? (NSString*)button : @""];
        [alert runModal];
        [alert release];
    }
}

}  // namespace platform
