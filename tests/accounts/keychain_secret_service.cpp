// The keychain against a real Secret Service. Run only by private_keyring.sh, which names in
// TALLY_KEYCHAIN_TEST the one suite its service suits (a private D-Bus session with a
// throw-away gnome-keyring); every other suite skips itself, so the user's own keyring is
// never touched. Key values are compared with EXPECT_TRUE, never printed.
#include "accounts/keychain.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace usagekit {
namespace {

using Clock = std::chrono::steady_clock;

class Keyring : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* suite = std::getenv("TALLY_KEYCHAIN_TEST");
        auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        if (!suite || std::string(suite) != test->test_suite_name())
            GTEST_SKIP() << "runs under tests/accounts/private_keyring.sh";
        m_ours = true;
    }
    void TearDown() override {
        for (const char* account : {"anthropic-admin-key", "openai-admin-key"})
            if (m_ours) Keychain::set("", account);  // never on a keyring we were not given
    }
    bool m_ours = false;

    // How many lines of `secret-tool search` over our items hold `line`.
    static int itemLines(const std::string& line) {
        FILE* pipe = popen("secret-tool search --all service app.tally.Tally 2>&1", "r");
        int count = 0;
        for (char buffer[4096]; fgets(buffer, sizeof buffer, pipe);)
            count += line + "\n" == buffer;
        pclose(pipe);
        return count;
    }
    // Stores an item as another program would, the value on stdin (never in argv).
    static void storeAsAnotherProgram(const std::string& attributes, const std::string& value) {
        FILE* pipe = popen(("secret-tool store --label=Other " + attributes).c_str(), "w");
        fwrite(value.data(), 1, value.size(), pipe);
        ASSERT_EQ(pclose(pipe), 0);
    }
};
using PrivateKeyring = Keyring;
using LockedKeyring = Keyring;
using NoSecretService = Keyring;

TEST_F(PrivateKeyring, SetReplacesOneLabelledItemAndAnEmptyValueDeletesIt) {
    Keychain::set("sk-ant-admin01-first", "anthropic-admin-key");
    Keychain::set("sk-ant-admin01-second", "anthropic-admin-key");
    EXPECT_TRUE(Keychain::get("anthropic-admin-key") == "sk-ant-admin01-second");
    EXPECT_TRUE(Keychain::has("anthropic-admin-key"));
    EXPECT_FALSE(Keychain::has("openai-admin-key"));
    EXPECT_EQ(itemLines("label = Tally: anthropic-admin-key"), 1);
    EXPECT_EQ(itemLines("attribute.account = anthropic-admin-key"), 1);
    for (int twice = 0; twice < 2; ++twice)  // deleting what is not there is harmless
        Keychain::set("", "anthropic-admin-key");
    EXPECT_FALSE(Keychain::get("anthropic-admin-key") || Keychain::has("anthropic-admin-key"));
    EXPECT_EQ(itemLines("attribute.account = anthropic-admin-key"), 0);
}

TEST_F(PrivateKeyring, BytesThatAreNotUTF8ReadAsMissingAndHintsMaskByCharacters) {
    EXPECT_FALSE(Keychain::hint("openai-admin-key").has_value());
    storeAsAnotherProgram("service app.tally.Tally account openai-admin-key", "sk-\xff\xfe-key");
    EXPECT_FALSE(Keychain::get("openai-admin-key") || Keychain::hint("openai-admin-key"));
    const std::string ten = "\u2022\u2022\u2022\u2022\u2022\u2022\u2022\u2022\u2022\u2022";
    const std::pair<std::string, std::string> cases[] = {
        {"0123456789", ten},
        {"abcdefghijk", "abcdef\u2026hijk"},  // "g" vanishes
        {"abcdef0123456789wxyz", "abcdef\u2026wxyz"},
        {"\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9", ten},  // not 20 bytes
    };
    for (auto& [value, hint] : cases) {
        Keychain::set(value, "openai-admin-key");
        EXPECT_TRUE(Keychain::hint("openai-admin-key") == hint) << hint;
    }
}

TEST_F(PrivateKeyring, ANonEmptyVariableWinsOverTheStore) {
    Keychain::set("stored-key-value", "anthropic-admin-key");
    {
        testing::ScopedEnv variable("TALLY_ANTHROPIC_ADMIN_KEY", "environment-key-value");
        EXPECT_TRUE(Keychain::get("anthropic-admin-key") == "environment-key-value");
        EXPECT_TRUE(Keychain::hint("anthropic-admin-key") == "enviro\u2026alue");
    }
    testing::ScopedEnv empty("TALLY_ANTHROPIC_ADMIN_KEY", "");
    EXPECT_TRUE(Keychain::get("anthropic-admin-key") == "stored-key-value");
    EXPECT_EQ(Keychain::environmentName("openrouter-management-key"),
              "TALLY_OPENROUTER_MANAGEMENT_KEY");
}

TEST_F(PrivateKeyring, ForeignReadsAnotherProgramsItemOnly) {
    const std::string credentials = R"({"claudeAiOauth":{"accessToken":"sk-ant-oat01-test"}})";
    storeAsAnotherProgram("service 'Claude Code-credentials' account ana", credentials);
    EXPECT_TRUE(Keychain::foreign("Claude Code-credentials") == credentials);
    EXPECT_FALSE(Keychain::foreign("Some Other-credentials").has_value());
    EXPECT_FALSE(Keychain::has("ana"));  // our own lookups never see it
    EXPECT_EQ(std::system("secret-tool clear service 'Claude Code-credentials' account ana"), 0);
}

TEST_F(LockedKeyring, ReadsAsMissingAndDropsWritesWithoutAPrompt) {
    auto start = Clock::now();
    // The item exists behind the lock; unlocking would need a prompt nobody can answer.
    EXPECT_FALSE(Keychain::get("locked-probe") || Keychain::has("locked-probe"));
    Keychain::set("replacement", "locked-probe");
    Keychain::set("new-key", "openai-admin-key");
    EXPECT_FALSE(Keychain::has("openai-admin-key"));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST_F(NoSecretService, KeysReadAsMissingAtOnceAndVariablesStillWork) {
    auto start = Clock::now();
    EXPECT_FALSE(Keychain::get("anthropic-admin-key") || Keychain::has("anthropic-admin-key") ||
                 Keychain::hint("anthropic-admin-key") ||
                 Keychain::foreign("Claude Code-credentials"));
    Keychain::set("dropped", "anthropic-admin-key");
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
    testing::ScopedEnv variable("TALLY_XAI_TEAM_ID", "team-42");  // a headless machine
    EXPECT_TRUE(Keychain::get("xai-team-id") == "team-42");
}

}  // namespace
}  // namespace usagekit
