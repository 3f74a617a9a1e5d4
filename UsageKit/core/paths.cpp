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

namespace {

// Each directory of $CLAUDE_CONFIG_DIR, else ~/.claude.
std::vector<fs::path> claudeHomes() {
    std::vector<fs::path> homes;
    const std::string configured = environment("CLAUDE_CONFIG_DIR");
    for (size_t from = 0; from < configured.size();) {
        size_t comma = configured.find(',', from);
        if (comma == std::string::npos) comma = configured.size();
        std::string entry = configured.substr(from, comma - from);
        entry.erase(0, entry.find_first_not_of(" \t"));
        entry.erase(entry.find_last_not_of(" \t") + 1);
        if (!entry.empty()) homes.emplace_back(entry);
        from = comma + 1;
    }
    if (homes.empty()) homes.push_back(home() / ".claude");
    return homes;
}

}  // namespace

std::vector<fs::path> claudeProjectRoots() {
    std::vector<fs::path> roots;
    for (const fs::path& claude : claudeHomes())
        roots.push_back(claude / "projects");
    if (environment("CLAUDE_CONFIG_DIR").empty()) roots.push_back(configHome() / "claude/projects");
    return roots;
}
fs::path claudeProjects() {
    return claudeProjectRoots().front();
}
std::vector<fs::path> claudeCredentialFiles() {
    std::vector<fs::path> files;
    for (const fs::path& claude : claudeHomes())
        files.push_back(claude / ".credentials.json");
    return files;
}
fs::path codexHome() {
    const std::string configured = environment("CODEX_HOME");
    return configured.empty() ? home() / ".codex" : fs::path(configured);
}
fs::path codexSessions() {
    return codexHome() / "sessions";
}
fs::path codexArchived() {
    return codexHome() / "archived_sessions";
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
    const std::string configured = environment("COPILOT_HOME");
    return {configured.empty() ? home() / ".copilot" : fs::path(configured),
            configHome() / "github-copilot"};
}

fs::path cursorDatabase() {
    return configHome() / "Cursor/User/globalStorage/state.vscdb";
}

}  // namespace usagekit::TallyPaths
