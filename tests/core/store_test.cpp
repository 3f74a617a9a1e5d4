#include "core/store.h"
#include "core/paths.h"
#include "core/settings.h"

#include "support/temp_home.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace usagekit {
namespace fs = std::filesystem;
namespace {

using testing::readText;
using testing::writeText;

class StoreTest : public testing::TempHome {};

TEST_F(StoreTest, SaveWritesPrettyJSONPrivatelyAndLoadReadsItBack) {
    TallySettings settings;
    settings.usageWindow = 7;
    fs::path file = support / "nested" / "settings.json";
    Store::save(settings, file);
    EXPECT_EQ(Store::load<TallySettings>(file), settings);
    struct stat info {};
    ASSERT_EQ(stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_NE(readText(file).find("\"usageWindow\" : 7"), std::string::npos);
    // No temporary is left behind.
    int entries = 0;
    for (auto& e : fs::directory_iterator(file.parent_path()))
        entries += e.exists();
    EXPECT_EQ(entries, 1);
}

TEST_F(StoreTest, AnInterruptedSaveLeavesTheOldFileIntact) {
    fs::path file = support / "settings.json";
    TallySettings old;
    old.usageWindow = 3;
    Store::save(old, file);
    TallySettings next;
    next.usageWindow = 90;
    // The process dies after writing the temporary, before the rename.
    fs::path temporary = Store::writeTemporary(jsonData(next, true), file);
    EXPECT_EQ(temporary.parent_path(), file.parent_path());
    EXPECT_EQ(temporary.filename().string().rfind(".settings.json.tmp-", 0), 0u);
    EXPECT_EQ(Store::load<TallySettings>(file)->usageWindow, 3);
    Store::replace(temporary, file);
    EXPECT_EQ(Store::load<TallySettings>(file)->usageWindow, 90);
    EXPECT_FALSE(fs::exists(temporary));
}

TEST_F(StoreTest, TemporariesAKilledSaveLeftAreRemovedByTheNextSaveButNotOnesBeingWritten) {
    const fs::path file = support / "usage-scan.json";
    const fs::path stale = Store::writeTemporary("{}", file);
    const fs::path other = Store::writeTemporary("{}", support / "settings.json");
    // One that a running save holds.
    const fs::path live = support / ".usage-scan.json.tmp-live";
    writeText(live, "{}");
    const int held = ::open(live.c_str(), O_RDONLY);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    Store::saveData("{}", file);
    EXPECT_FALSE(fs::exists(stale));
    EXPECT_TRUE(fs::exists(live));
    EXPECT_TRUE(fs::exists(other));  // another file's: its own next save removes it
    ::close(held);
}

TEST_F(StoreTest, UnreadableStateIsMovedAsideNeverOverwrittenAndNothingElseMoves) {
    fs::path file = support / "settings.json";
    auto missing = Store::loadState<TallySettings>(file);
    EXPECT_FALSE(missing.first || missing.second);
    Store::save(TallySettings(), file);
    auto good = Store::loadState<TallySettings>(file);
    EXPECT_TRUE(good.first && !good.second);

    writeText(file, "not json at all");
    auto [value, aside] = Store::loadState<TallySettings>(file);
    EXPECT_FALSE(value);
    ASSERT_TRUE(aside);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(readText(*aside), "not json at all");
    std::string name = aside->filename().string();
    EXPECT_EQ(name.rfind("settings.json.unreadable-", 0), 0u);
    EXPECT_EQ(name.find(':'), std::string::npos);
    EXPECT_EQ(name.size(), std::string("settings.json.unreadable-2026-11-15T18-20-00Z").size());

    // A second bad file in the same second does not replace the first one.
    writeText(file, "{\"also\":\"broken\"}");
    auto second = Store::loadState<TallySettings>(file).second;
    ASSERT_TRUE(second);
    EXPECT_NE(*second, *aside);
    EXPECT_EQ(readText(*aside), "not json at all");
}

TEST_F(StoreTest, AStateFileTooLargeToBeOursIsNotReadWhole) {
    const fs::path file = support / "settings.json";
    writeText(file, "{}");
    fs::resize_file(file, Store::kMaxFileBytes + 1);  // sparse: costs no disk
    EXPECT_FALSE(Store::readFile(file));
}

TEST_F(StoreTest, SaveFailsWhenTheDirectoryCannotBeMade) {
    writeText(support / "blocker", "a file, not a directory");
    EXPECT_THROW(Store::save(TallySettings(), support / "blocker" / "settings.json"),
                 std::system_error);
}

TEST_F(StoreTest, SettingsWithAMissingKeyFallBackToDefaults) {
    writeText(TallySettings::file(), R"({"usageWindow":5,"notifyBudgets":false})");
    TallySettings loaded = TallySettings::load();
    EXPECT_EQ(loaded, TallySettings());
}

TEST_F(StoreTest, OldSettingsGainNewDefaultSeatsButKeepTheUsersPrices) {
    writeText(
        TallySettings::file(),
        R"({"usageWindow":14,"notifyBudgets":false,"seatPrices":{"claude-code":100,"codex-cli":0}})");
    TallySettings loaded = TallySettings::load();
    EXPECT_EQ(loaded.usageWindow, 14);
    EXPECT_FALSE(loaded.notifyBudgets);
    EXPECT_EQ(loaded.seatPrices.size(), 6u);
    EXPECT_EQ(loaded.seatPrices["claude-code"], 100);
    EXPECT_EQ(loaded.seatPrices["codex-cli"], 0);
    EXPECT_EQ(loaded.seatPrices["github-copilot"], 10);
}

TEST_F(StoreTest, PathsFollowHomeAndTheSupportOverride) {
    EXPECT_TRUE(TallyPaths::isScratchState());
    EXPECT_EQ(TallyPaths::state("settings.json"), support / "settings.json");
    EXPECT_EQ(TallyPaths::claudeProjects(), home / ".claude/projects");
    EXPECT_EQ(TallyPaths::codexArchived(), home / ".codex/archived_sessions");
    EXPECT_EQ(TallyPaths::geminiHomes(), std::vector<fs::path>{home / ".gemini"});
    testing::ScopedEnv gemini("GEMINI_CLI_HOME", "/opt/g");
    EXPECT_EQ(TallyPaths::geminiHomes(),
              (std::vector<fs::path>{home / ".gemini", fs::path("/opt/g/.gemini")}));
    testing::ScopedEnv config("XDG_CONFIG_HOME", "/cfg");
    EXPECT_EQ(TallyPaths::cursorDatabase(), "/cfg/Cursor/User/globalStorage/state.vscdb");
    EXPECT_EQ(TallyPaths::copilotRoots()[1], "/cfg/github-copilot");
    testing::ScopedEnv empty("TALLY_SUPPORT_DIR", "");
    EXPECT_FALSE(TallyPaths::isScratchState());
}

}  // namespace
}  // namespace usagekit
