#include "core/paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <optional>

namespace usagekit::TallyPaths {

namespace {

std::mutex supportMutex;
std::optional<fs::path> supportDirectory;

void createPrivateDirectory(const fs::path& directory) {
    std::error_code ec;
    if (fs::is_directory(directory, ec)) return;
    if (!directory.parent_path().empty() && directory.parent_path() != directory)
        createPrivateDirectory(directory.parent_path());
    ::mkdir(directory.c_str(), 0700);
}

fs::path configHome() {
    std::string xdg = environment("XDG_CONFIG_HOME");
    return xdg.empty() ? home() / ".config" : fs::path(xdg);
}

}  // namespace

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

fs::path home() {
    std::string fromEnvironment = environment("HOME");
    if (!fromEnvironment.empty()) return fromEnvironment;
    struct passwd entry {};
    struct passwd* result = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &result) == 0 && result &&
        result->pw_dir)
        return result->pw_dir;
    return "/";
}

fs::path support() {
    std::lock_guard lock(supportMutex);
    if (!supportDirectory) {
        std::string override = environment("TALLY_SUPPORT_DIR");
        if (!override.empty()) {
            supportDirectory = fs::path(override);
        } else {
            std::string dataHome = environment("XDG_DATA_HOME");
            fs::path base = dataHome.empty() ? home() / ".local/share" : fs::path(dataHome);
            supportDirectory = base / "Tally";
        }
        createPrivateDirectory(*supportDirectory);
    }
    return *supportDirectory;
}

void setSupport(const fs::path& directory) {
    std::lock_guard lock(supportMutex);
    supportDirectory = directory;
    createPrivateDirectory(directory);
}

fs::path state(const std::string& name) {
    return support() / name;
}

bool isScratchState() {
    return !environment("TALLY_SUPPORT_DIR").empty();
}

fs::path claudeProjects() {
    return home() / ".claude/projects";
}
fs::path claudeCredentials() {
    return home() / ".claude/.credentials.json";
}
fs::path codexSessions() {
    return home() / ".codex/sessions";
}
fs::path codexArchived() {
    return home() / ".codex/archived_sessions";
}
fs::path grokSessions() {
    return home() / ".grok/sessions";
}

std::vector<fs::path> geminiHomes() {
    std::vector<fs::path> homes{home() / ".gemini"};
    std::string second = environment("GEMINI_CLI_HOME");
    if (!second.empty()) homes.push_back(fs::path(second) / ".gemini");
    return homes;
}

fs::path openCodeDatabase() {
    return home() / ".local/share/opencode/opencode.db";
}

std::vector<fs::path> copilotRoots() {
    return {home() / ".copilot", configHome() / "github-copilot"};
}

fs::path cursorDatabase() {
    return configHome() / "Cursor/User/globalStorage/state.vscdb";
}

}  // namespace usagekit::TallyPaths
