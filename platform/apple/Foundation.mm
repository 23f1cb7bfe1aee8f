// The main run loop, the alert and the file manager as messages to objects.

#include "platform/Foundation.h"

#import <AppKit/AppKit.h>

#include <memory>

#if __has_feature(objc_arc)
#error "written for manual reference counts"
#endif

namespace {

/// Hands a failure to the caller, who owns it.
void GiveError(NSError* failure, CFErrorRef* error) {
    if (error) *error = (CFErrorRef)[failure retain];
}

/// A resource value of a file; nil when it cannot be read.
id ResourceValue(CFURLRef item, NSURLResourceKey key) {
    id value = nil;
    return [(NSURL*)item getResourceValue:&value forKey:key error:nil] ? value : nil;
}

}  // namespace

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

CFURLRef CreateItemReplacementFolder(CFURLRef target, CFErrorRef* error) {
    @autoreleasepool {
        NSError* failure = nil;
        NSURL* folder = [[NSFileManager defaultManager] URLForDirectory:NSItemReplacementDirectory
                                                               inDomain:NSUserDomainMask
                                                      appropriateForURL:(NSURL*)target
                                                                 create:YES
                                                                  error:&failure];
        if (!folder) GiveError(failure, error);
        return (CFURLRef)[folder retain];
    }
}

bool ReplaceItem(CFURLRef target, CFURLRef replacement, CFErrorRef* error) {
    @autoreleasepool {
        if (!target || !replacement) {
            GiveError([NSError errorWithDomain:NSPOSIXErrorDomain code:EINVAL userInfo:nil], error);
            return false;
        }
        NSError* failure = nil;
        const BOOL done = [[NSFileManager defaultManager] replaceItemAtURL:(NSURL*)target
                                                             withItemAtURL:(NSURL*)replacement
                                                            backupItemName:nil
                                                                   options:0
                                                          resultingItemURL:nil
                                                                     error:&failure];
        if (!done) GiveError(failure, error);
        return done;
    }
}

bool RemoveItem(CFURLRef item) {
    if (!item) return false;
    @autoreleasepool {
        return [[NSFileManager defaultManager] removeItemAtURL:(NSURL*)item error:nil];
    }
}

void RemoveItemReplacementFolder(CFURLRef folder) {
    RemoveItem(folder);
}

bool WriteDataAtomically(CFDataRef data, CFURLRef file) {
    if (!data || !file) return false;
    @autoreleasepool {
        return [(NSData*)data writeToURL:(NSURL*)file options:NSDataWritingAtomic error:nil];
    }
}

CFDataRef CreateDataWithContents(CFURLRef file) {
    if (!file) return nullptr;
    @autoreleasepool {
        return (CFDataRef)[[NSData dataWithContentsOfURL:(NSURL*)file] retain];
    }
}

bool IsRegularFile(CFURLRef item) {
    @autoreleasepool {
        return [ResourceValue(item, NSURLIsRegularFileKey) boolValue];
    }
}

bool IsDirectory(CFURLRef item) {
    @autoreleasepool {
        return [ResourceValue(item, NSURLIsDirectoryKey) boolValue];
    }
}

int64_t FileSize(CFURLRef item) {
    @autoreleasepool {
        return [ResourceValue(item, NSURLFileSizeKey) longLongValue];
    }
}

bool TrashContains(CFURLRef item) {
    if (!item) return false;
    @autoreleasepool {
        NSURLRelationship relationship = NSURLRelationshipOther;
        const BOOL known = [[NSFileManager defaultManager] getRelationship:&relationship
                                                               ofDirectory:NSTrashDirectory
                                                                  inDomain:(NSSearchPathDomainMask)0
                                                               toItemAtURL:(NSURL*)item
                                                                     error:nil];
        return known && relationship == NSURLRelationshipContains;
    }
}

}  // namespace platform
