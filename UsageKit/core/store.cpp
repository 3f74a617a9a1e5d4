#include "core/store.h"

#include "core/regular_file.h"
#include "core/uuid.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace usagekit::Store {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void createDirectories(const fs::path& directory) {
    std::error_code ec;
    if (directory.empty() || fs::is_directory(directory, ec)) return;
    createDirectories(directory.parent_path());
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
        fail("cannot create " + directory.string());
}

}  // namespace

std::optional<std::string> readFile(const fs::path& path) {
    off_t size = 0;
    const int fd = RegularFile::open(path.c_str(), &size);
    if (fd < 0) return std::nullopt;
    auto readSome = [fd](char* into, size_t room) {
        for (;;) {
            const ssize_t n = ::read(fd, into, room);
            if (n >= 0 || errno != EINTR) return n;
        }
    };
    // Read straight into the string, sized by the file: every rescan reads megabytes of
    // state, and a bounce buffer would copy all of it twice.
    std::string data;
    if (static_cast<uint64_t>(size) > kMaxFileBytes) {
        ::close(fd);
        return std::nullopt;
    }
    data.resize(static_cast<size_t>(size));
    size_t length = 0;
    ssize_t n = 1;
    while (length < data.size() && (n = readSome(data.data() + length, data.size() - length)) > 0)
        length += static_cast<size_t>(n);
    data.resize(length);
    // The rest of a file that grew since the stat, or of one whose size it did not tell.
    char buffer[1 << 16];
    while (n > 0 && data.size() <= kMaxFileBytes && (n = readSome(buffer, sizeof buffer)) > 0)
        data.append(buffer, static_cast<size_t>(n));
    ::close(fd);
    if (n < 0 || data.size() > kMaxFileBytes) return std::nullopt;
    return data;
}

namespace {

std::string temporaryPrefix(const fs::path& target) {
    return "." + target.filename().string() + ".tmp-";
}

fs::path directoryOf(const fs::path& target) {
    return target.parent_path().empty() ? fs::path(".") : target.parent_path();
}

// Whether `path` still names the file open as `fd`.
bool stillNamed(int fd, const fs::path& path) {
    struct stat open {
    }, named{};
    return ::fstat(fd, &open) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Removes the temporaries of `target` that no save is writing: a save holds a lock on its
// temporary from creation until it is renamed, so one that can be locked was left by a
// process killed mid-save. The lock goes with the process, however it ends.
void removeStaleTemporaries(const fs::path& target) {
    const std::string prefix = temporaryPrefix(target);
    const fs::path directory = directoryOf(target);
    std::error_code ec;
    for (fs::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec)) {
        const fs::path path = it->path();
        if (!path.filename().string().starts_with(prefix)) continue;
        const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) continue;
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && stillNamed(fd, path)) ::unlink(path.c_str());
        ::close(fd);
    }
}

// Creates a temporary beside `target`, locked (see removeStaleTemporaries), writes `data`
// to it and fsyncs it. Returns the descriptor, still open and locked.
int writeLocked(const std::string& data, const fs::path& target, fs::path& temporary) {
    createDirectories(target.parent_path());
    int fd = -1;
    // A cleaner may lock and remove a temporary in the instant between its creation and
    // its lock: then it is no longer named, and another is made.
    for (int attempt = 0; fd < 0; ++attempt) {
        temporary = target.parent_path() / (temporaryPrefix(target) + randomUUID().substr(0, 8));
        fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) fail("cannot create " + temporary.string());
        if (::flock(fd, LOCK_EX) == 0 && stillNamed(fd, temporary)) break;
        ::close(fd);
        fd = -1;
        if (attempt == 8) fail("cannot keep " + temporary.string());
    }
    auto failWriting = [&] {
        const int saved = errno;
        ::close(fd);
        ::unlink(temporary.c_str());
        errno = saved;
        fail("cannot write " + temporary.string());
    };
    size_t written = 0;
    while (written < data.size()) {
        ssize_t n = ::write(fd, data.data() + written, data.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) failWriting();
        written += static_cast<size_t>(n);
    }
    if (::fsync(fd) != 0) failWriting();
    return fd;
}

}  // namespace

fs::path writeTemporary(const std::string& data, const fs::path& target) {
    fs::path temporary;
    const int fd = writeLocked(data, target, temporary);
    if (::close(fd) != 0) {
        const int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        fail("cannot write " + temporary.string());
    }
    return temporary;
}

void replace(const fs::path& temporary, const fs::path& target) {
    if (::rename(temporary.c_str(), target.c_str()) != 0) return;
    int fd = ::open(directoryOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

void saveData(const std::string& data, const fs::path& path, struct stat* written) {
    removeStaleTemporaries(path);
    fs::path temporary;
    const int fd = writeLocked(data, path, temporary);
    if (written && ::fstat(fd, written) != 0) *written = {};
    // Renamed while still locked, so that no cleaner takes it for a stale one.
    replace(temporary, path);
    ::close(fd);
}

fs::path quarantinePath(const fs::path& path, Date now) {
    std::string stamp = ISO8601::format(now);
    std::replace(stamp.begin(), stamp.end(), ':', '-');
    fs::path aside = path;
    aside += ".unreadable-" + stamp;
    return aside;
}

fs::path quarantine(const fs::path& path) {
    fs::path aside = quarantinePath(path, Date::now());
    std::error_code ec;
    for (int n = 2; fs::exists(aside, ec); ++n) {
        aside = quarantinePath(path, Date::now());
        aside += '-';
        aside += std::to_string(n);
    }
    fs::rename(path, aside, ec);
    return aside;
}

}  // namespace usagekit::Store
