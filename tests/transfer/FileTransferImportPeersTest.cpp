// SPDX-License-Identifier: Apache-2.0
// An import beside other processes that use the database, and of files that other programs wrote.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <thread>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "support/Command.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/SQLitePeer.hpp"
#include "transfer/ByteOrderMark.hpp"
#include "transfer/CSVStream.hpp"
#include "transfer/ImportScene.hpp"

namespace tolva {
namespace {

// Locks -------------------------------------------------------------------------------------------------

TEST(FileTransferImport, WaitsForALockAndGivesUp) {
  ImportScene scene("CREATE TABLE t(a)");
  SQLitePeer peer(scene.database.path());
  ASSERT_EQ(peer.exec("BEGIN IMMEDIATE; INSERT INTO t VALUES ('theirs')"), "ok");
  DatabaseError const failure = failureOf([&] { scene.intoTable("a\n1\n"); });
  EXPECT_EQ(failure, DatabaseError("database is locked [BEGIN IMMEDIATE]", SQLITE_BUSY));
  EXPECT_EQ(failure.errorDescription(),
            "Another connection is holding a database lock. Wait for its transaction to finish, then try again. "
            "database is locked [BEGIN IMMEDIATE]");
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  EXPECT_EQ(scene.intoTable("a\n1\n"), 1);
  EXPECT_EQ(peer.rows("SELECT a FROM t"), "theirs\n1");
}

constexpr std::int64_t manyRows = 2'500;

/// So many rows of 1,000 bytes: some pages more than the cache holds, which are written before the transaction ends.
std::string moreThanTheCache() {
  std::string csv = "a\n";
  for (std::int64_t row = 0; row < manyRows; ++row) csv += std::string(1000, 'x') + "\n";
  return csv;
}

/// SQLite itself would wait 1.2 seconds for each of these pages, keep it in memory, and fail at the end.
TEST(FileTransferImport, GivesUpWhenAReaderStaysWhileItSpills) {
  for (bool const fresh : {true, false}) {
    ImportScene scene(fresh ? "PRAGMA user_version = 1" : "CREATE TABLE t(a)");
    std::string const before = scene.tables();
    SQLitePeer reader(scene.database.path());
    ASSERT_EQ(reader.exec("BEGIN"), "ok");
    ASSERT_EQ(reader.rows("SELECT count(*) FROM sqlite_schema"), fresh ? "0" : "1");
    auto const import = [&] { return fresh ? scene.intoNew(moreThanTheCache()) : scene.intoTable(moreThanTheCache()); };
    EXPECT_EQ(failureOf([&] { import(); }), DatabaseError("database is locked", SQLITE_BUSY));
    EXPECT_GE(scene.told.size(), 1U);
    EXPECT_LT(scene.told.back(), manyRows) << "it gave up before it had inserted them all";
    ASSERT_EQ(reader.exec("COMMIT"), "ok");
    EXPECT_EQ(scene.tables(), before);
    EXPECT_EQ(import(), manyRows);
  }
}

/// What fits into the cache waits at its end alone.
TEST(FileTransferImport, IsUndoneWhenAReaderRefusesItsCommit) {
  ImportScene scene("CREATE TABLE t(a)");
  SQLitePeer reader(scene.database.path());
  ASSERT_EQ(reader.exec("BEGIN"), "ok");
  ASSERT_EQ(reader.rows("SELECT count(*) FROM t"), "0");
  EXPECT_EQ(failureOf([&] { scene.intoTable("a\n1\n2\n"); }),
            DatabaseError("database is locked [COMMIT]", SQLITE_BUSY));
  EXPECT_TRUE(scene.told.empty());
  ASSERT_EQ(reader.exec("COMMIT"), "ok");
  EXPECT_EQ(scene.rows(), "");
  EXPECT_EQ(scene.intoTable("a\n1\n2\n"), 2);
}

TEST(FileTransferImport, KeepsOthersOutUntilItIsDone) {
  ImportScene scene("CREATE TABLE t(a)");
  SQLitePeer peer(scene.database.path());
  scene.whenTold = [&](std::int64_t count) {
    bool const running = count == 500;
    EXPECT_EQ(peer.exec("INSERT INTO t VALUES ('theirs')"), running ? "error 5 database is locked" : "ok");
    EXPECT_EQ(peer.rows("SELECT count(*) FROM t"), running ? "0" : "502");
  };
  std::string csv = "a\n";
  for (int row = 0; row < 501; ++row) csv += "x\n";
  EXPECT_EQ(scene.intoTable(csv), 501);
  EXPECT_EQ(scene.told, (std::vector<std::int64_t>{500, 501}));
}

/// The file is read while SQLite has the database open, and is the database: closing it must not give up the locks.
TEST(FileTransferImport, KeepsItsLocksWhenTheFileIsTheDatabase) {
  for (char const* const name : {"a.db", "link.db", "symbolic.db"}) {
    SCOPED_TRACE(name);
    ImportScene scene("CREATE TABLE t(a)");
    std::filesystem::create_hard_link(scene.database.path(), scene.folder / "link.db");
    std::filesystem::create_symlink(scene.database.path(), scene.folder / "symbolic.db");
    SQLitePeer peer(scene.database.path());
    auto const connection = SQLiteConnection::open(scene.database.path(), {.readOnly = false});
    connection->execute("BEGIN IMMEDIATE");
    connection->execute("INSERT INTO t VALUES ('ours')");
    FileTransfer transfer;
    // The bytes of a database are no text; in Latin-1 they are, and make one name of many bytes.
    EXPECT_EQ(failureOf([&] {
                transfer.importCSV(
                    scene.folder / name, scene.database.path(), "t", schemaOf(scene.database.path(), "t"), {},
                    [](std::int64_t) {}, noTask);
              }).code,
              1);
    EXPECT_NO_THROW(transfer.preview(scene.folder / name, {.encoding = CSVEncoding::latin1}, noTask));
    EXPECT_EQ(peer.exec("INSERT INTO t VALUES ('theirs')"), "error 5 database is locked");
    connection->execute("COMMIT");
    EXPECT_EQ(peer.rows("SELECT a FROM t"), "ours");
  }
}

/// In its companions lie locks as well, those of a write-ahead log in the "-shm".
TEST(FileTransferImport, KeepsItsLocksWhenTheFileIsACompanionOfTheDatabase) {
  struct {
    char const* journal;
    std::vector<std::string> files;
  } const cases[] = {{"DELETE", {"a.db-journal"}}, {"WAL", {"a.db-wal", "a.db-shm"}}};
  for (auto const& each : cases) {
    SCOPED_TRACE(each.journal);
    ImportScene scene(std::string("PRAGMA journal_mode = ") + each.journal + "; CREATE TABLE t(a)");
    SQLitePeer peer(scene.database.path());
    auto const connection = SQLiteConnection::open(scene.database.path(), {.readOnly = false});
    connection->execute("BEGIN IMMEDIATE");
    connection->execute("INSERT INTO t VALUES ('ours')");
    for (std::string const& file : each.files) {
      ASSERT_TRUE(std::filesystem::exists(scene.folder / file)) << file;
      EXPECT_NO_THROW(FileTransfer().preview(scene.folder / file, {.encoding = CSVEncoding::latin1}, noTask));
      EXPECT_NE(failureOf([&] { scene.import(scene.folder / file, schemaOf(scene.database.path(), "t")); }).code, 0);
      EXPECT_EQ(peer.exec("INSERT INTO t VALUES ('theirs')"), "error 5 database is locked") << file;
    }
    connection->execute("COMMIT");
    EXPECT_EQ(peer.rows("SELECT a FROM t"), "ours");
  }
}

/// The same for the locks that the import itself holds.
TEST(FileTransferImport, KeepsItsOwnLocksWhenTheFileIsTheDatabase) {
  ImportScene scene("CREATE TABLE t(a)");
  SQLitePeer peer(scene.database.path());
  FileTransfer other;
  scene.whenTold = [&](std::int64_t count) {
    if (count != 500) return;
    std::thread([&] { other.preview(scene.database.path(), {.encoding = CSVEncoding::latin1}, noTask); }).join();
    EXPECT_EQ(peer.exec("INSERT INTO t VALUES ('theirs')"), "error 5 database is locked");
  };
  std::string csv = "a\n";
  for (int row = 0; row < 501; ++row) csv += "x\n";
  EXPECT_EQ(scene.intoTable(csv), 501);
}

// Files of other programs --------------------------------------------------------------------------------

/// Runs the program on a script or SQL, with the folder as its own.
std::string outputOf(std::vector<std::string> const& arguments, TemporaryFolder const& folder) {
  CommandResult const result = runCommand(arguments, {.folder = folder.path()});
  EXPECT_EQ(result.status, 0) << result.errors;
  return result.output;
}

constexpr char hardValues[] =
    "('plain', 1), ('comma, and \"quotes\"', 2), ('two' || char(10) || 'lines', 3), ('return' || char(13) || 'inside', "
    "4),"
    "('', 5), (' blanks ', 6), ('''', 7), ('café 漢字', 8), ('007', 9), ('1e5', 10), ('\"', 11), (',', 12)";

TEST(FileTransferImport, ReadsWhatTheShellOfSQLiteWrites) {
  ImportScene scene(std::string("CREATE TABLE s(a TEXT, b INTEGER); INSERT INTO s VALUES ") + hardValues);
  std::string const csv = outputOf({"/usr/bin/env", "sqlite3", "-batch", "-init", "/dev/null", "-header", "-csv",
                                    scene.database.path(), "SELECT a, b FROM s"},
                                   scene.folder);
  EXPECT_EQ(scene.intoNew(csv), 12);
  EXPECT_EQ(scene.tables(), "CREATE TABLE s(a TEXT, b INTEGER)\nCREATE TABLE \"t\" (\"a\" TEXT,\"b\" INTEGER)");
  EXPECT_EQ(scene.rows("SELECT * FROM t EXCEPT SELECT * FROM s; SELECT * FROM s EXCEPT SELECT * FROM t"), "");
}

TEST(FileTransferImport, ReadsWhatPythonWrites) {
  ImportScene scene(std::string("CREATE TABLE s(a TEXT, b INTEGER); INSERT INTO s VALUES ") + hardValues);
  char const* const script =
      "import csv, sqlite3, sys\n"
      "rows = sqlite3.connect(sys.argv[1]).execute('SELECT a, b FROM s')\n"
      "with open(sys.argv[2], 'w', newline='', encoding='utf-8') as file:\n"
      "    out = csv.writer(file, dialect=sys.argv[3])\n"
      "    out.writerow(['a', 'b'])\n"
      "    out.writerows(rows)\n";
  for (std::string const dialect : {"excel", "excel-tab", "unix"}) {
    SCOPED_TRACE(dialect);
    scene.database.run("DROP TABLE IF EXISTS t");
    outputOf({"/usr/bin/env", "python3", "-c", script, scene.database.path(), scene.folder / "in.csv", dialect},
             scene.folder);
    CSVOptions const options{.delimiter = static_cast<std::uint8_t>(dialect == "excel-tab" ? '\t' : ',')};
    EXPECT_EQ(scene.import(scene.folder / "in.csv", {}, options), 12);
    EXPECT_EQ(scene.rows("SELECT * FROM t EXCEPT SELECT * FROM s; SELECT * FROM s EXCEPT SELECT * FROM t"), "");
  }
}

/// Every file that is read whole goes into a table whole, unless its rows differ in length; the fields come back as the
/// reader gives them.
TEST(FileTransferImport, KeepsTheFieldsOfRealFiles) {
  TOLVA_NEEDS_CORPORA();
  int imported = 0;
  int compared = 0;
  for (char const* const folder : {"csv-spectrum", "csv-duckdb"}) {
    for (std::vector<std::string> const& noted : corpusManifest(folder)) {
      auto const file = corpora() / folder / noted.front();
      if (!std::filesystem::exists(file) || !noted[1].ends_with(" rows")) continue;
      SCOPED_TRACE(file);
      ImportScene scene;
      CSVStream stream(file);
      std::vector<std::vector<std::string>> rows;
      while (auto row = stream.next(noTask)) rows.push_back(std::move(*row));
      bool even = true;
      for (auto const& row : rows) even = even && row.size() == rows.front().size();
      if (rows.empty() || !even || rows.size() > 500 || rows.front().size() > 100) continue;
      ASSERT_EQ(scene.import(file, {}, {.header = false}), std::ssize(rows));
      removeByteOrderMarks(rows.front().front());
      std::vector<bool> decimals;  // a column of these keeps their values, and not how many digits they had
      auto const connection = SQLiteConnection::open(scene.database.path(), {});
      auto types = connection->prepare("SELECT type = 'REAL' FROM pragma_table_info('t')");
      while (types.step()) decimals.push_back(types.value(0, /*full=*/true) == SQLiteValue(1));
      auto statement = connection->prepare("SELECT * FROM t ORDER BY rowid");
      for (auto const& row : rows) {
        ASSERT_TRUE(statement.step());
        auto const values = statement.row(/*full=*/true);
        for (std::size_t column = 0; column < row.size(); ++column) {
          if (decimals[column] && !row[column].empty()) continue;
          ASSERT_EQ(values[column].display(), row[column]);
          ++compared;
        }
      }
      ++imported;
    }
  }
  EXPECT_GT(imported, 100);
  EXPECT_GT(compared, 1'000);
}

}  // namespace
}  // namespace tolva
