#include "sources/sqlite_read.h"

#include "core/text.h"
#include "support/sqlite_file.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

namespace fs = std::filesystem;

class SQLiteReadTest : public testing::TempHome {
  protected:
    fs::path database(const fs::path& relative, const char* sql) {
        testing::SQLiteFile(home / relative, sql);
        return home / relative;
    }

    static std::string failureOf(const fs::path& path, const std::string& sql) {
        try {
            SQLiteRead::query(path, sql);
        } catch (const SQLiteRead::Failure& failure) {
            return failure.what();
        }
        ADD_FAILURE() << "no failure for " << sql;
        return {};
    }
};

TEST_F(SQLiteReadTest, ReadingADatabaseInWALModeLeavesNoFilesBesideIt) {
    const fs::path path = database("wal.db",
                                   "PRAGMA journal_mode=WAL; CREATE TABLE t (i INTEGER);"
                                   "INSERT INTO t VALUES (1);");
    ASSERT_FALSE(fs::exists(path.string() + "-wal"));  // the writer closed: nothing beside it
    EXPECT_EQ(SQLiteRead::query(path, "SELECT i FROM t").root().array().size(), 1u);
    EXPECT_FALSE(fs::exists(path.string() + "-wal"));
    EXPECT_FALSE(fs::exists(path.string() + "-shm"));
}

TEST_F(SQLiteReadTest, RowsKeepTheirColumnTypesAndABlankInThePathIsEncoded) {
    auto path = database("with blank/state.db",
                         "CREATE TABLE t (i INTEGER, r REAL, s TEXT, n TEXT);"
                         "INSERT INTO t VALUES (1760000000000, 0.25, 'a \"quoted\" text', NULL);");
    EXPECT_EQ(SQLiteRead::readOnlyURI(path),
              "file:" + (home / "with%20blank/state.db").string() + "?mode=ro");
    JSONDocument rows = SQLiteRead::query(path, "SELECT i, r, s, n FROM t");
    ASSERT_EQ(rows.root().array().size(), 1u);
    JSON row = rows.root()[size_t(0)];
    EXPECT_EQ(row["i"].integer(), 1760000000000);
    EXPECT_EQ(row["r"].number(), 0.25);
    EXPECT_EQ(row["s"].string(), "a \"quoted\" text");
    EXPECT_TRUE(row["n"].isNull());
    // No rows is an empty array, not a failure.
    EXPECT_TRUE(SQLiteRead::query(path, "SELECT * FROM t WHERE i < 0").root().isArray());
    EXPECT_TRUE(SQLiteRead::query(path, "SELECT * FROM t WHERE i < 0").root().array().empty());
}

TEST_F(SQLiteReadTest, FailuresCarryAtMost200CharactersOfSQLitesMessage) {
    auto path = database("state.db", "CREATE TABLE t (i INTEGER);");
    const std::string longName(300, 'x');
    const std::string message = failureOf(path, "SELECT * FROM " + longName);
    EXPECT_EQ(message, Text::firstCharacters("no such table: " + longName, 200));
    EXPECT_EQ(failureOf(path, "INSERT INTO t VALUES (1)"), "attempt to write a readonly database");
}

TEST_F(SQLiteReadTest, AFileThatIsNoDatabaseFailsAndAMissingOneIsEmpty) {
    testing::writeText(home / "junk.db", std::string(4096, '\x7f'));
    EXPECT_EQ(failureOf(home / "junk.db", "SELECT * FROM message"), "file is not a database");
    EXPECT_TRUE(SQLiteRead::query(home / "missing.db", "SELECT 1").root().array().empty());
    EXPECT_FALSE(fs::exists(home / "missing.db"));
}

}  // namespace
}  // namespace usagekit
