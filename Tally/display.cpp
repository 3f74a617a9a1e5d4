#include "display.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace tally::Display {

namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool connects(const std::string& path, bool abstract) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t offset = abstract ? 1 : 0;
    if (path.size() + offset >= sizeof address.sun_path) {
        ::close(fd);
        return false;
    }
    std::memcpy(address.sun_path + offset, path.data(), path.size());
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + offset + path.size());
    const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0;
    ::close(fd);
    return ok;
}

bool waylandAvailable() {
    const std::string name = variable("WAYLAND_DISPLAY");
    if (name.empty()) return false;
    const std::string path = name.front() == '/' ? name : variable("XDG_RUNTIME_DIR") + "/" + name;
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

bool x11Available() {
    std::string display = variable("DISPLAY");
    if (display.empty()) return false;
    if (display.starts_with("unix:")) display.erase(0, 4);
    if (display.front() != ':') return true;  // host:N, only Qt's own attempt can judge
    const std::string number = display.substr(1, display.find('.') - 1);
    const std::string socket = "/tmp/.X11-unix/X" + number;
    return connects(socket, true) || connects(socket, false);
}

}  // namespace

bool available() {
    const std::string platform = variable("QT_QPA_PLATFORM");
    for (std::string_view headless : {"offscreen", "minimal", "vnc", "eglfs", "linuxfb"})
        if (platform.starts_with(headless)) return true;
    if (platform.starts_with("wayland")) return waylandAvailable();
    if (platform.starts_with("xcb")) return x11Available();
    return waylandAvailable() || x11Available();
}

}  // namespace tally::Display
