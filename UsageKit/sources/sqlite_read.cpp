#include "sources/sqlite_read.h"

#include "core/regular_file.h"
#include "core/text.h"

#include <unistd.h>

#include <sqlite3.h>

#include <cmath>
#include <memory>

namespace usagekit::SQLiteRead {

namespace {

constexpr size_t kMessageCharacters = 200;

[[noreturn]] void fail(const char* message) {
    throw Failure(Text::firstCharacters(Text::trimmed(message ? message : "unknown SQLite error"),
                                        kMessageCharacters));
}

JSONDocument parsed(const std::string& text) {
    auto document = JSONDocument::parse(text);
    return document ? std::move(*document) : std::move(*JSONDocument::parse("[]"));
}

}  // namespace

std::string readOnlyURI(const std::filesystem::path& path) {
    return "file:" + Text::percentEncode(path.string(), Text::kURLPathExtra) + "?mode=ro";
}

JSONDocument query(const std::filesystem::path& path, const std::string& sql) {
    // Anything but a regular file (a FIFO would block SQLite's open) reads as no database.
    const int probe = RegularFile::open(path.c_str());
    if (probe < 0) return parsed("[]");
    ::close(probe);

    // Opening a database in WAL mode, even read-only, makes its -wal and -shm files when
    // they are absent, and those would stay in the other program's folder. Without a
    // write-ahead log nobody is writing: the file is opened as immutable, which creates
    // nothing and takes no lock. With one, the owner is running and its files are there.
    std::string uri = readOnlyURI(path);
    std::error_code ec;
    if (!std::filesystem::exists(path.string() + "-wal", ec)) uri += "&immutable=1";
    sqlite3* raw = nullptr;
    int status =
        sqlite3_open_v2(uri.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(raw, sqlite3_close);
    if (status != SQLITE_OK) fail(raw ? sqlite3_errmsg(raw) : sqlite3_errstr(status));
    // Another program may be writing; wait a little for its lock rather than fail at once.
    sqlite3_busy_timeout(db.get(), 2000);

    JsonWriter rows(false);
    rows.beginArray();
    const char* tail = sql.c_str();
    while (tail && *tail) {
        sqlite3_stmt* rawStatement = nullptr;
        if (sqlite3_prepare_v2(db.get(), tail, -1, &rawStatement, &tail) != SQLITE_OK)
            fail(sqlite3_errmsg(db.get()));
        if (!rawStatement) break;  // only blanks or a comment were left
        std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(rawStatement,
                                                                             sqlite3_finalize);
        const int columns = sqlite3_column_count(statement.get());
        for (;;) {
            int step = sqlite3_step(statement.get());
            if (step == SQLITE_DONE) break;
            if (step != SQLITE_ROW) fail(sqlite3_errmsg(db.get()));
            rows.beginObject();
            for (int c = 0; c < columns; ++c) {
                const char* name = sqlite3_column_name(statement.get(), c);
                rows.key(name ? name : "");
                switch (sqlite3_column_type(statement.get(), c)) {
                    case SQLITE_INTEGER:
                        rows.value(static_cast<int64_t>(sqlite3_column_int64(statement.get(), c)));
                        break;
                    case SQLITE_FLOAT: {
                        double value = sqlite3_column_double(statement.get(), c);
                        if (std::isfinite(value))
                            rows.value(value);
                        else
                            rows.null();
                        break;
                    }
                    case SQLITE_TEXT:
                    case SQLITE_BLOB: {
                        const auto* text = sqlite3_column_text(statement.get(), c);
                        int length = sqlite3_column_bytes(statement.get(), c);
                        rows.value(std::string_view(reinterpret_cast<const char*>(text),
                                                    static_cast<size_t>(length)));
                        break;
                    }
                    default:
                        rows.null();
                }
            }
            rows.endObject();
        }
    }
    rows.endArray();
    return parsed(rows.text());
}

}  // namespace usagekit::SQLiteRead
