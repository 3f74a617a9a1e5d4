#include "desktop_loader.h"

#include "display.h"

#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace tally {

namespace {

namespace fs = std::filesystem;

constexpr const char* kModule = "tally-desktop.so";
constexpr const char* kEntry = "tally_run_desktop";

fs::path executableDirectory() {
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    return ec ? fs::path() : self.parent_path();
}

}  // namespace

int runDesktopApp(int argc, char** argv) {
    if (!Display::available()) {
        std::fprintf(stderr, "no display to show Tally on; `tally --scan` works without one\n");
        return 1;
    }
    const fs::path here = executableDirectory();
    std::string reason = "it was not found";
    for (const fs::path& candidate :
         {here / kModule, here / TALLY_DESKTOP_MODULE_FROM_BINDIR / kModule}) {
        std::error_code ec;
        if (!fs::exists(candidate, ec)) continue;
        void* module = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!module) {
            const char* error = ::dlerror();
            reason = error ? error : "it could not be loaded";
            continue;
        }
        using Entry = int (*)(int, char**);
        if (auto entry = reinterpret_cast<Entry>(::dlsym(module, kEntry))) return entry(argc, argv);
        reason = candidate.string() + " is not Tally's desktop module";
    }
    std::fprintf(stderr,
                 "tally: the desktop app cannot start (%s); `tally --scan` works without it\n",
                 reason.c_str());
    return 1;
}

}  // namespace tally
