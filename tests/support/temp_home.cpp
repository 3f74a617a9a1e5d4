#include "support/temp_home.h"

#include "core/date.h"
#include "core/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace usagekit::testing {

ScopedEnv::ScopedEnv(const char* name, const std::optional<std::string>& value) : m_name(name) {
    if (const char* old = std::getenv(name)) m_saved = old;
    if (value)
        setenv(name, value->c_str(), 1);
    else
        unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
    if (m_saved)
        setenv(m_name.c_str(), m_saved->c_str(), 1);
    else
        unsetenv(m_name.c_str());
}

ScopedTimeZone::ScopedTimeZone(const std::string& tz) {
    m_env.emplace("TZ", tz);
    Calendar::timeZoneChanged();
}

ScopedTimeZone::~ScopedTimeZone() {
    m_env.reset();
    Calendar::timeZoneChanged();
}

fs::path makeTempDirectory(const std::string& prefix) {
    std::string pattern = (fs::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    return pattern;
}

void TempHome::SetUp() {
    root = makeTempDirectory("tally-test");
    home = root / "home";
    support = root / "support";
    fs::create_directories(home);
    m_home.emplace("HOME", home.string());
    m_support.emplace("TALLY_SUPPORT_DIR", support.string());
    m_xdgConfig.emplace("XDG_CONFIG_HOME", std::nullopt);
    m_xdgData.emplace("XDG_DATA_HOME", std::nullopt);
    m_gemini.emplace("GEMINI_CLI_HOME", std::nullopt);
    // The tools' own variables of the developer running the tests must not lead outside.
    m_codex.emplace("CODEX_HOME", std::nullopt);
    m_claude.emplace("CLAUDE_CONFIG_DIR", std::nullopt);
    m_copilot.emplace("COPILOT_HOME", std::nullopt);
    TallyPaths::setSupport(support);
}

void TempHome::TearDown() {
    m_copilot.reset();
    m_claude.reset();
    m_codex.reset();
    m_gemini.reset();
    m_xdgData.reset();
    m_xdgConfig.reset();
    m_support.reset();
    m_home.reset();
    std::error_code ec;
    fs::remove_all(root, ec);
}

fs::path TempHome::write(const fs::path& relative, const std::string& text) {
    fs::path path = home / relative;
    writeText(path, text);
    return path;
}

fs::path TempHome::copyFixture(const std::string& relative, const fs::path& target) {
    return write(target, readText(fixture(relative)));
}

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void writeText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

void setModified(const fs::path& path, double seconds) {
    struct timespec times[2];
    times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(std::floor(seconds));
    times[0].tv_nsec = times[1].tv_nsec =
        static_cast<long>(std::llround((seconds - std::floor(seconds)) * 1e9));
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}

fs::path fixture(const std::string& relative) {
    return fs::path(TALLY_TEST_DATA) / relative;
}

}  // namespace usagekit::testing
