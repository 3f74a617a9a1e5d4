// Runs the built `tally` binary (TALLY_BINARY) with the test's environment, for end-to-end
// tests of the terminal commands: standard output, standard error and the exit status.
#pragma once

#include "support/temp_home.h"

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace usagekit::testing {

struct TallyRun {
    std::string out;
    std::string err;
    int status = -1;  // -1 when the process did not exit normally
};

// `arguments` go to the shell as they are; `scratch` is a directory where standard error
// is collected. TZ is UTC unless `tz` names another zone, so that printed times do not
// depend on the machine.
inline TallyRun runTally(const std::string& arguments, const fs::path& scratch,
                         const std::string& tz = "UTC0") {
    const fs::path errFile = scratch / "stderr.txt";
    const std::string command =
        "TZ='" + tz + "' " + std::string(TALLY_BINARY) + " " + arguments + " 2>" + errFile.string();
    TallyRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        run.out.append(buffer, n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.err = readText(errFile);
    return run;
}

}  // namespace usagekit::testing
