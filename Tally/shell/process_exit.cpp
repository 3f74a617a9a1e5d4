#include "shell/process_exit.h"

#include "core/scan_cache.h"

#include <unistd.h>
#include <cstdio>

namespace tally {

void leaveProcess(int status) {
    usagekit::ScanCache::waitForSave();
    std::fflush(nullptr);
    ::_exit(status);
}

}  // namespace tally
