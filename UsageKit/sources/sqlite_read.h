// Read-only SQL queries against other programs' SQLite databases (OpenCode's history,
// Cursor's settings), in process on libsqlite3.
#pragma once

#include "core/json.h"

#include <filesystem>
#include <stdexcept>
#include <string>

namespace usagekit::SQLiteRead {

// A query that SQLite refused; what() is the first 200 characters of SQLite's message.
struct Failure : std::runtime_error {
    explicit Failure(const std::string& message) : std::runtime_error(message) {}
    std::string message() const { return what(); }
};

// Every row as a JSON object (column name → integer, real, text or null), in a JSON
// array. A missing file, or anything but a regular file, gives an empty array without
// opening anything. The database is opened as the URI file:<percent-encoded path>?mode=ro,
// so it is never written, with "&immutable=1" when it has no write-ahead log, so that no
// -wal or -shm file is left beside it.
JSONDocument query(const std::filesystem::path& path, const std::string& sql);

// The URI that query() opens.
std::string readOnlyURI(const std::filesystem::path& path);

}  // namespace usagekit::SQLiteRead
