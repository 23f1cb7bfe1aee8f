// With an argument this program says what it takes from its surroundings.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/Posix/Environment.h"
#include "platform/linux/Preferences/PreferenceFile.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

std::string Surroundings() {
    const char* const data = platform::EnvironmentVariable("XDG_DATA_HOME");
    return platform::HomeFolder() + " " + platform::ConfigurationFolder() + " " + (data ? data : "-");
}

std::string Answer(const std::string& program) {
    std::FILE* const pipe = popen((program + " say").c_str(), "r");
    char line[4096] = {};
    const bool isAnswered = std::fgets(line, sizeof line, pipe) != nullptr;
    pclose(pipe);
    return isAnswered ? line : "(no answer)";
}

class EnvironmentTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("HOME", "/users/home", 1);
        setenv("XDG_CONFIG_HOME", "/users/configuration", 1);
        setenv("XDG_DATA_HOME", "/users/data", 1);
    }
};

TEST_F(EnvironmentTest, VariablesChooseTheFolders) {
    EXPECT_EQ(Surroundings(), "/users/home /users/configuration /users/data");
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(Surroundings(), "/users/home /users/home/.config /users/data");
}

TEST_F(EnvironmentTest, WithoutAHomeTheListOfUsersIsAsked) {
    unsetenv("HOME");
    EXPECT_EQ(platform::HomeFolder(), getpwuid(geteuid())->pw_dir);
    setenv("HOME", "below/the/current/folder", 1);
    EXPECT_EQ(platform::HomeFolder(), "");
}

TEST_F(EnvironmentTest, AProgramWithMoreRightsThanItsUserBelievesNone) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a program to somebody else";
    const passwd* const nobody = getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    const std::string home = nobody->pw_dir;
    const TemporaryFolder folder;
    fs::permissions(folder / "", fs::perms(0755));
    const std::string program = folder / "program";
    fs::copy_file("/proc/self/exe", program);
    EXPECT_EQ(Answer(program), "the user's rights: /users/home /users/configuration /users/data");
    ASSERT_EQ(chown(program.c_str(), nobody->pw_uid, nobody->pw_gid), 0);
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    const std::string answer = Answer(program);
    if (answer.starts_with("the user's")) GTEST_SKIP() << "the volume gives programs no rights";
    EXPECT_EQ(answer, "more rights: " + home + " " + home + "/.config -");
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 1) {
        std::printf("%s: %s", getauxval(AT_SECURE) ? "more rights" : "the user's rights", Surroundings().c_str());
        return 0;
    }
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
