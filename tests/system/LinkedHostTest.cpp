// A host linked with the library sees the library's own variables, not copies of them that its own linking made.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "ColourMatch/ColourMatch.h"

namespace {

TEST(LinkedHost, ReadsTheErrorThatTheLibraryRecorded) {
    gLastError = 0;
    gLastMessage = 0;
    EXPECT_THROW(Failure(-170, 5), long);
    EXPECT_EQ(gLastError, -170);
    EXPECT_EQ(gLastMessage, 5);
}

TEST(LinkedHost, ReadsTheConstantsOfTheLibrary) {
    EXPECT_EQ(PCSWhite.Y, 65536);
    EXPECT_EQ(PCSWhiteColour.Y, 1.0F);
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
}

struct Variable {
    const char* name;
    const void* address;  // as this program sees it
};
#define VARIABLE(name) \
    { #name, &name }

const Variable kVariables[] = {
    VARIABLE(gAskFailure),
    VARIABLE(gBreakFailure),
    VARIABLE(gLastError),
    VARIABLE(gLastMessage),
    VARIABLE(gNotify),
    VARIABLE(gUserData),
    VARIABLE(PCSWhite),
    VARIABLE(D65White),
    VARIABLE(PCSWhiteColour),
    VARIABLE(D65WhiteColour),
    VARIABLE(bradfordMatrix),
    VARIABLE(kCFBooleanTrue),
    VARIABLE(kCFTypeArrayCallBacks),
    VARIABLE(kCFTypeDictionaryKeyCallBacks),
    VARIABLE(kCFTypeDictionaryValueCallBacks),
    VARIABLE(kColorSyncProfile),
};

TEST(LinkedHost, HasNoCopiesOfVariables) {
    void* const library = dlopen("libcolourmatch.so.2", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const Variable& variable : kVariables) EXPECT_EQ(dlsym(library, variable.name), variable.address) << variable.name;
    dlclose(library);
}

}  // namespace
