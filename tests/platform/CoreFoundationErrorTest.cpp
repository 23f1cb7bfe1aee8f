#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "platform/CoreFoundation.h"
#include "tests/fixtures/StringText.h"

namespace {

Owned<CFDictionaryRef> UserInfo(CFStringRef key, CFTypeRef value) {
    const void* keys[] = {key};
    const void* values[] = {value};
    return Owned<CFDictionaryRef>(
        CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

Owned<CFErrorRef> Error(CFStringRef domain, CFIndex code, CFDictionaryRef userInfo) {
    return Owned<CFErrorRef>(CFErrorCreate(kCFAllocatorDefault, domain, code, userInfo));
}

std::string Description(CFErrorRef error) {
    return Text(Owned<CFStringRef>(CFErrorCopyDescription(error)));
}

TEST(CoreFoundationError, KeepsDomainCodeAndUserInformation) {
    const Owned<CFDictionaryRef> userInfo = UserInfo(CFSTR("key"), CFSTR("value"));
    const Owned<CFErrorRef> error = Error(CFSTR("domain"), -5, userInfo.Get());
    EXPECT_EQ(CFGetTypeID(error.Get()), CFErrorGetTypeID());
    EXPECT_EQ(Text(CFErrorGetDomain(error.Get())), "domain");
    EXPECT_EQ(CFErrorGetCode(error.Get()), -5);
    EXPECT_TRUE(CFEqual(Owned<CFDictionaryRef>(CFErrorCopyUserInfo(error.Get())).Get(), userInfo.Get()));
}

TEST(CoreFoundationError, WithoutUserInformationItIsEmpty) {
    const Owned<CFErrorRef> error = Error(CFSTR("domain"), 1, nullptr);
    const Owned<CFDictionaryRef> userInfo(CFErrorCopyUserInfo(error.Get()));
    ASSERT_TRUE(userInfo);
    EXPECT_EQ(CFDictionaryGetCount(userInfo.Get()), 0);
}

TEST(CoreFoundationError, LaterChangesOfTheDictionaryDoNotReachIt) {
    const Owned<CFMutableDictionaryRef> userInfo(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(userInfo.Get(), kCFErrorLocalizedDescriptionKey, CFSTR("before"));
    const Owned<CFErrorRef> error = Error(CFSTR("domain"), 1, userInfo.Get());
    CFDictionarySetValue(userInfo.Get(), kCFErrorLocalizedDescriptionKey, CFSTR("after"));
    EXPECT_EQ(Description(error.Get()), "before");
}

TEST(CoreFoundationError, NeedsADomain) {
    EXPECT_FALSE(Error(nullptr, 1, nullptr));
}

TEST(CoreFoundationError, IsDescribedAsWellAsItCan) {
    EXPECT_EQ(Description(Error(CFSTR("d"), 5, UserInfo(kCFErrorLocalizedDescriptionKey, CFSTR("The disc is full.")).Get()).Get()),
              "The disc is full.");
    EXPECT_EQ(Description(Error(CFSTR("d"), 5, UserInfo(kCFErrorLocalizedFailureReasonKey, CFSTR("No space.")).Get()).Get()),
              "The operation could not be completed: No space.");
    EXPECT_EQ(Description(Error(kCFErrorDomainPOSIX, ENOENT, nullptr).Get()),
              std::string("The operation could not be completed: ") + std::strerror(ENOENT));
    EXPECT_EQ(Description(Error(CFSTR("SomeDomain"), -7, nullptr).Get()), "The operation could not be completed (SomeDomain error -7)");
    EXPECT_EQ(Description(Error(CFSTR("SomeDomain"), 7, UserInfo(kCFErrorLocalizedDescriptionKey, kCFBooleanTrue).Get()).Get()),
              "The operation could not be completed (SomeDomain error 7)")
        << "a description must be a text";
}

TEST(CoreFoundationError, IsEqualByItsContent) {
    const Owned<CFErrorRef> error = Error(CFSTR("d"), 1, UserInfo(CFSTR("k"), CFSTR("v")).Get());
    const Owned<CFErrorRef> same = Error(NewString("d").Get(), 1, UserInfo(CFSTR("k"), CFSTR("v")).Get());
    EXPECT_TRUE(CFEqual(error.Get(), same.Get()));
    EXPECT_EQ(CFHash(error.Get()), CFHash(same.Get()));
    EXPECT_FALSE(CFEqual(error.Get(), Error(CFSTR("d"), 2, UserInfo(CFSTR("k"), CFSTR("v")).Get()).Get()));
    EXPECT_FALSE(CFEqual(error.Get(), Error(CFSTR("e"), 1, UserInfo(CFSTR("k"), CFSTR("v")).Get()).Get()));
    EXPECT_FALSE(CFEqual(error.Get(), Error(CFSTR("d"), 1, nullptr).Get()));
}

}  // namespace
