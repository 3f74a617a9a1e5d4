#include "core/platform/shared_library.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace usagekit {
namespace {

TEST(SharedLibrary, MissingLibraryLeavesFunctionsNullAndIsNamed) {
    SharedLibrary library("libtally-absent.so.7", "Widgets");
    int (*function)(int) = [](int x) { return x; };
    library.find(function, "abs");
    EXPECT_EQ(function, nullptr);
    EXPECT_EQ(library.problem().rfind("Widgets need libtally-absent.so.7, which", 0), 0u);
}

TEST(SharedLibrary, MissingFunctionIsNamedWhileOthersAreFound) {
    SharedLibrary library("libc.so.6", "Widgets");
    size_t (*length)(const char*) = nullptr;
    void (*absent)() = nullptr;
    library.find(absent, "tally_no_such_function");
    library.find(length, "strlen");
    EXPECT_EQ(absent, nullptr);
    ASSERT_NE(length, nullptr);
    EXPECT_EQ(length("four"), 4u);
    EXPECT_NE(library.problem().find("tally_no_such_function"), std::string::npos);
}

// A local scan must not pay for loading libcurl, libsecret and GLib with their TLS, LDAP
// and Kerberos libraries: only the commands that use them open them.
TEST(SharedLibrary, TallyStartsWithoutNetworkOrKeyringLibraries) {
    const std::string command = "LD_TRACE_LOADED_OBJECTS=1 " + std::string(TALLY_BINARY);
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string loaded;
    for (char buffer[4096]; fgets(buffer, sizeof buffer, pipe);)
        loaded += buffer;
    pclose(pipe);
    ASSERT_NE(loaded.find("libc.so"), std::string::npos);
    for (const char* lazy : {"libcurl", "libsecret", "libglib"})
        EXPECT_EQ(loaded.find(lazy), std::string::npos) << lazy;
}

}  // namespace
}  // namespace usagekit
