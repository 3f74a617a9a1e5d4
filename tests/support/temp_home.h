// Test fixtures: a throw-away home and support directory, a time zone for one test, and
// small file helpers. Every test that touches the file system or the environment uses
// these, so no test can read or write the developer's own logs or state.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace usagekit::testing {

namespace fs = std::filesystem;

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const std::optional<std::string>& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    std::string m_name;
    std::optional<std::string> m_saved;
};

// TZ for the life of the object; POSIX rule strings need no zone database.
class ScopedTimeZone {
  public:
    explicit ScopedTimeZone(const std::string& tz);
    ~ScopedTimeZone();

  private:
    std::optional<ScopedEnv> m_env;
};

// A fresh directory with `home/` (HOME points there) and `support/` (the state directory).
class TempHome : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    fs::path root;
    fs::path home;
    fs::path support;

    // Writes `text` to home/relative (parents created) and returns the full path.
    fs::path write(const fs::path& relative, const std::string& text);
    // Copies a fixture from tests/data/relative to home/target.
    fs::path copyFixture(const std::string& relative, const fs::path& target);

  private:
    std::optional<ScopedEnv> m_home, m_support, m_xdgConfig, m_xdgData, m_gemini, m_codex, m_claude,
        m_copilot;
};

// A TempHome in UTC, for readers' tests whose folded records name their day's start in UTC.
class UTCHome : public TempHome {
  protected:
    ScopedTimeZone utc{"UTC0"};
};

fs::path makeTempDirectory(const std::string& prefix);
std::string readText(const fs::path& path);
void writeText(const fs::path& path, const std::string& text);
// Sets the file's modification time to `seconds` since 1970.
void setModified(const fs::path& path, double seconds);
fs::path fixture(const std::string& relative);

}  // namespace usagekit::testing
