// Where Tally keeps its state and where each tool keeps its logs, on Linux.
// Tool paths are computed from the home directory on every call, so a changed HOME (as in
// tests) takes effect at once; the support directory is computed once and then kept.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace usagekit::TallyPaths {

namespace fs = std::filesystem;

// $HOME when set and non-empty, else the user's entry in the password database.
fs::path home();

// ${XDG_DATA_HOME:-$HOME/.local/share}/Tally, or $TALLY_SUPPORT_DIR when that is set and
// non-empty. Created (mode 0700) on first use; a failure to create it is not reported.
fs::path support();
// Redirects all state to `directory` from now on (created as above).
void setSupport(const fs::path& directory);
fs::path state(const std::string& name);
// True when TALLY_SUPPORT_DIR is set and non-empty: the state is a throw-away copy.
bool isScratchState();

// Claude Code's homes: each directory of $CLAUDE_CONFIG_DIR (a comma-separated list) when
// it is set and non-empty, else ~/.claude. Without it, some versions wrote their projects
// under ${XDG_CONFIG_HOME:-~/.config}/claude, which is read as well.
std::vector<fs::path> claudeProjectRoots();
fs::path claudeProjects();  // the first of claudeProjectRoots()
// Claude Code's sign-in file in each home, in order.
std::vector<fs::path> claudeCredentialFiles();
// $CODEX_HOME when set and non-empty, else ~/.codex.
fs::path codexHome();
fs::path codexSessions();
fs::path codexArchived();
fs::path grokSessions();
// ~/.gemini, then $GEMINI_CLI_HOME/.gemini when that is set and non-empty.
std::vector<fs::path> geminiHomes();
fs::path openCodeDatabase();
// $COPILOT_HOME (else ~/.copilot), then ${XDG_CONFIG_HOME:-~/.config}/github-copilot.
std::vector<fs::path> copilotRoots();
fs::path cursorDatabase();

// An environment variable when set and non-empty.
std::string environment(const char* name);

}  // namespace usagekit::TallyPaths
