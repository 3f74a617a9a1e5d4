// How the desktop app leaves. Every state file is written when it changes; what may still
// run at Quit is a scan or a remote refresh on a worker whose results nobody will see. So
// the app waits only for the scan cache being written, then exits without unwinding, never
// waiting on the network. Kept free of Qt headers (Qt's `slots` macro breaks UsageKit's).
#pragma once

namespace tally {

[[noreturn]] void leaveProcess(int status);

}  // namespace tally
