// Opening a file Tally reads (a log, a state file, a credential), so that whatever lies
// where one is expected can neither stall nor flood it: a FIFO would block the open until
// a writer came, and a device such as /dev/zero never ends. Only regular files are read.
// Every reader of files goes through here, so no reader needs a check of its own.
#pragma once

#include <sys/types.h>

namespace usagekit::RegularFile {

// A descriptor open for reading `path` (links followed), or -1 when it cannot be opened or
// is not a regular file. The open never waits: it asks for O_NONBLOCK, which changes
// nothing for a regular file once open. `size`, when given, gets the size at the open. The
// caller owns the descriptor and closes it. Any thread.
int open(const char* path, off_t* size = nullptr);

}  // namespace usagekit::RegularFile
