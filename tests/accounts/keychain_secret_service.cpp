// Keychain against a real Secret Service. Built as accounts_keychain_test and run only
// through tests/accounts/private_keyring.sh, which starts a private D-Bus session and a
// throw-away gnome-keyring; each suite skips itself anywhere else, so the user's own
// keyring is never touched. Key values are compared with EXPECT_TRUE, never printed.
#include "accounts/keychain.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace usagekit {
namespace {

using Clock = std::chrono::steady_clock;

bool runningAs(const char* suite) {
    const char* mode = std::getenv("TALLY_KEYCHAIN_TEST");
    return mode && std::string(mode) == suite;
}

// Output of a command, stdout and stderr; used only inside assertions that do not print it.
std::string output(const std::string& command) {
    std::string out;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    size_t read;
    while ((read = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        out.append(buffer, read);
    pclose(pipe);
    return out;
}

// Stores an item as another program would, the value given on stdin (never in argv).
void storeWithSecretTool(const std::string& attributes, const std::string& value) {
    FILE* pipe = popen(("secret-tool store --label=Other " + attributes).c_str(), "w");
    ASSERT_NE(pipe, nullptr);
    fwrite(value.data(), 1, value.size(), pipe);
    ASSERT_EQ(pclose(pipe), 0);
}

size_t occurrences(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++count;
    return count;
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class PrivateKeyring : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!runningAs("private")) GTEST_SKIP() << "runs under tests/accounts/private_keyring.sh";
    }
    void TearDown() override {
        for (const char* account : {"anthropic-admin-key", "openai-admin-key"})
            Keychain::set("", account);
    }
};

TEST_F(PrivateKeyring, SetReplacesOneLabelledItemAndAnEmptyValueDeletes) {
    Keychain::set("sk-ant-admin01-first", "anthropic-admin-key");
    Keychain::set("sk-ant-admin01-second", "anthropic-admin-key");
    EXPECT_TRUE(Keychain::get("anthropic-admin-key") == "sk-ant-admin01-second");
    EXPECT_TRUE(Keychain::has("anthropic-admin-key"));
    EXPECT_FALSE(Keychain::has("openai-admin-key"));
    std::string items = output("secret-tool search --all service app.tally.Tally");
    EXPECT_EQ(occurrences(items, "label = Tally: anthropic-admin-key"), 1u);
    EXPECT_EQ(occurrences(items, "attribute.account = anthropic-admin-key"), 1u);

    Keychain::set("", "anthropic-admin-key");
    EXPECT_FALSE(Keychain::get("anthropic-admin-key").has_value());
    EXPECT_FALSE(Keychain::has("anthropic-admin-key"));
    items = output("secret-tool search --all service app.tally.Tally");
    EXPECT_EQ(occurrences(items, "attribute.account = anthropic-admin-key"), 0u);
    Keychain::set("", "anthropic-admin-key");  // deleting what is not there is harmless
}

TEST_F(PrivateKeyring, HintMasksByCharacters) {
    EXPECT_FALSE(Keychain::hint("openai-admin-key").has_value());
    Keychain::set("0123456789", "openai-admin-key");
    EXPECT_TRUE(Keychain::hint("openai-admin-key") ==
                "\u2022\u2022\u2022\u2022\u2022\u2022\u2022\u2022\u2022\u2022");
    Keychain::set("abcdefghijk", "openai-admin-key");
    EXPECT_TRUE(Keychain::hint("openai-admin-key") == "abcdef\u2026hijk");  // "g" vanishes
    Keychain::set("abcdef0123456789wxyz", "openai-admin-key");
    EXPECT_TRUE(Keychain::hint("openai-admin-key") == "abcdef\u2026wxyz");
    // Characters, not bytes: ten two-byte letters still give ten bullets.
    Keychain::set("\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9",
                  "openai-admin-key");
    EXPECT_EQ(Keychain::hint("openai-admin-key")->size(), 10 * std::string("\u2022").size());
}

TEST_F(PrivateKeyring, TheEnvironmentWinsOverTheStore) {
    Keychain::set("stored-key-value", "anthropic-admin-key");
    {
        testing::ScopedEnv fromEnvironment("TALLY_ANTHROPIC_ADMIN_KEY", "environment-key-value");
        EXPECT_TRUE(Keychain::get("anthropic-admin-key") == "environment-key-value");
        EXPECT_TRUE(Keychain::hint("anthropic-admin-key") == "enviro\u2026alue");
    }
    {
        testing::ScopedEnv empty("TALLY_ANTHROPIC_ADMIN_KEY", "");
        EXPECT_TRUE(Keychain::get("anthropic-admin-key") == "stored-key-value");
    }
    EXPECT_EQ(Keychain::environmentName("openrouter-management-key"),
              "TALLY_OPENROUTER_MANAGEMENT_KEY");
}

TEST_F(PrivateKeyring, ForeignReadsAnotherProgramsItemOnly) {
    storeWithSecretTool("service 'Claude Code-credentials' account ana",
                        R"({"claudeAiOauth":{"accessToken":"sk-ant-oat01-test"}})");
    EXPECT_TRUE(Keychain::foreign("Claude Code-credentials") ==
                R"({"claudeAiOauth":{"accessToken":"sk-ant-oat01-test"}})");
    EXPECT_FALSE(Keychain::foreign("Some Other-credentials").has_value());
    // Our own lookups never see it.
    EXPECT_FALSE(Keychain::has("ana"));
    output("secret-tool clear service 'Claude Code-credentials' account ana");
}

TEST_F(PrivateKeyring, AValueThatIsNotUTF8ReadsAsMissing) {
    storeWithSecretTool("service app.tally.Tally account openai-admin-key", "sk-\xff\xfe-key");
    EXPECT_FALSE(Keychain::get("openai-admin-key").has_value());
    EXPECT_FALSE(Keychain::hint("openai-admin-key").has_value());
}

TEST(LockedKeyring, ReadsAsMissingAndDropsWritesWithoutAPrompt) {
    if (!runningAs("locked")) GTEST_SKIP() << "runs under tests/accounts/private_keyring.sh";
    auto start = Clock::now();
    // The item exists behind the lock; unlocking would need a prompt nobody can answer.
    EXPECT_FALSE(Keychain::get("locked-probe").has_value());
    EXPECT_FALSE(Keychain::has("locked-probe"));
    Keychain::set("replacement", "locked-probe");
    Keychain::set("new-key", "openai-admin-key");
    EXPECT_FALSE(Keychain::has("openai-admin-key"));
    EXPECT_LT(secondsSince(start), 5);
}

TEST(NoSecretService, KeysReadAsMissingAtOnce) {
    if (!runningAs("no-bus")) GTEST_SKIP() << "runs under tests/accounts/private_keyring.sh";
    auto start = Clock::now();
    EXPECT_FALSE(Keychain::get("anthropic-admin-key").has_value());
    EXPECT_FALSE(Keychain::has("anthropic-admin-key"));
    EXPECT_FALSE(Keychain::hint("anthropic-admin-key").has_value());
    EXPECT_FALSE(Keychain::foreign("Claude Code-credentials").has_value());
    Keychain::set("dropped", "anthropic-admin-key");
    EXPECT_LT(secondsSince(start), 2);
    // A headless machine still gets its keys from the environment.
    testing::ScopedEnv fromEnvironment("TALLY_XAI_TEAM_ID", "team-42");
    EXPECT_TRUE(Keychain::get("xai-team-id") == "team-42");
}

}  // namespace
}  // namespace usagekit
