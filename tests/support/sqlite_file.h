// A SQLite database written by a test: made with its parent directories, given `sql`, and
// kept open for the object's life, so that a WAL database keeps its rows in the
// write-ahead log as it does while the tool that owns it runs. A statement that fails
// fails the test with SQLite's message.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

namespace usagekit::testing {

class SQLiteFile {
  public:
    SQLiteFile(const std::filesystem::path& path, const std::string& sql) {
        std::filesystem::create_directories(path.parent_path());
        EXPECT_EQ(sqlite3_open(path.c_str(), &m_db), SQLITE_OK) << path;
        exec(sql);
    }
    // More statements, as the owning tool writes while it runs.
    void exec(const std::string& sql) {
        EXPECT_EQ(sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(m_db);
    }
    ~SQLiteFile() { sqlite3_close(m_db); }
    SQLiteFile(const SQLiteFile&) = delete;
    SQLiteFile& operator=(const SQLiteFile&) = delete;

  private:
    sqlite3* m_db = nullptr;
};

}  // namespace usagekit::testing
