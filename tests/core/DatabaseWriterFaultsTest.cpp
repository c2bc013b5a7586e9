// SPDX-License-Identifier: Apache-2.0
// What an edit, an insert or a delete leaves behind when the disk fails, or the process dies, at any of its file calls.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>

#include "core/DatabaseWriter.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TableRows.hpp"
#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

using Rows = std::vector<DatabaseRow>;

/// A change of the table of the scene, done with rows as they were read before.
struct Operation {
  char const* says;
  std::function<void(DatabaseWriter& writer, TableSchema const& schema, Rows const& rows)> run;
};

void editEveryRow(DatabaseWriter& writer, TableSchema const& schema, Rows const& rows) {
  std::vector<CellChange> changes;
  for (DatabaseRow const& row : rows) changes.push_back({row, "a", std::string(300, 'n')});
  writer.apply(schema, changes, noTask);
}

void insertOneRow(DatabaseWriter& writer, TableSchema const& schema, Rows const&) {
  writer.insert(schema, {{"a", std::string(9000, 'n')}, {"b", "inserted"}});
}

void deleteSomeRows(DatabaseWriter& writer, TableSchema const& schema, Rows const& rows) {
  Rows deleted;
  for (DatabaseRow const& row : rows) {
    if (row.values[2] == SQLiteValue("to be deleted")) deleted.push_back(row);
  }
  writer.deleteRows(schema, deleted, noTask);
}

Operation const operations[] = {
    {"apply", editEveryRow},
    {"insert", insertOneRow},
    {"deleteRows", deleteSomeRows},
};

/// The database in which all of them work, in a folder of its own.
class Scene {
 public:
  explicit Scene(std::string journal) : journal_(std::move(journal)) { makeAnew(); }

  void makeAnew() {
    for (char const* suffix : {"", "-journal", "-wal", "-shm"}) std::filesystem::remove(path.string() + suffix);
    TemporaryDatabase(
        folder, "a.db",
        "PRAGMA synchronous = OFF; PRAGMA journal_mode = " + journal_ +
            "; CREATE TABLE t(id INTEGER PRIMARY KEY, a TEXT, b TEXT); CREATE TABLE log(text);"
            "CREATE INDEX i ON t(a); CREATE TRIGGER d AFTER DELETE ON t BEGIN INSERT INTO log VALUES (old.a); END;"
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 30) INSERT INTO t "
            "SELECT i, printf('%.*c', 200 + i, 'a'), iif(i < 20, 'to be deleted', 'to be kept') FROM n");
    read();
  }

  void read() { rows = rowsOf(path, schemaOf(path, "t")); }
  std::string content() const { return rowsAsText(path, "SELECT * FROM t; SELECT * FROM log"); }

  void run(Operation const& operation) const {
    DatabaseWriter writer;
    writer.open(path);
    operation.run(writer, schema, rows);
  }

  TemporaryFolder const folder;
  std::filesystem::path const path = folder / "a.db";
  TableSchema const schema{
      .object = {.name = "t", .kind = "table", .sql = ""},
      .columns = {{.name = "id", .type = "INTEGER", .primaryKey = 1}, {.name = "a"}, {.name = "b"}},
      .identity = {"id"}};
  Rows rows;

 private:
  std::string const journal_;
};

bool agrees(FaultOutcome const& outcome, bool changed) {
  if (outcome.told == FaultOutcome::Told::success) return changed;
  return outcome.told == FaultOutcome::Told::nothing || !changed;
}

class DatabaseWriterFaults : public testing::TestWithParam<std::string> {};

TEST_P(DatabaseWriterFaults, LeaveTheOldContentOrTheNew) {
  for (Operation const& operation : operations) {
    SCOPED_TRACE(operation.says);
    Scene scene(GetParam());
    std::string const before = scene.content();
    scene.run(operation);
    std::string const after = scene.content();
    ASSERT_NE(before, after);
    long const calls = forEachFault(
        scene.folder.path(), [&] { scene.makeAnew(); }, [&] { scene.run(operation); },
        [&](FaultMode, long, FaultOutcome const& outcome) {
          EXPECT_EQ(rowsAsText(scene.path, "PRAGMA integrity_check"), "ok");
          std::string const content = scene.content();
          ASSERT_TRUE(content == before || content == after) << content;
          EXPECT_TRUE(agrees(outcome, content == after)) << outcome.text;
          scene.read();
          scene.run(operation);
          if (content == before) {
            EXPECT_EQ(scene.content(), after);
          }
        });
    EXPECT_GE(calls, GetParam() == "WAL" ? 6 : 8);
  }
}

/// A writer that an error left its connection goes on with it.
TEST_P(DatabaseWriterFaults, LeaveTheWriterUsable) {
  for (Operation const& operation : operations) {
    SCOPED_TRACE(operation.says);
    Scene scene(GetParam());
    long faults = 0;
    for (bool struck = true; struck; ++faults) {
      scene.makeAnew();
      DatabaseWriter writer;
      writer.open(scene.path);
      writer.apply(scene.schema, {}, noTask);  // SQLite never tries again to open what it shares in WAL mode
      auto const run = [&] { operation.run(writer, scene.schema, scene.rows); };
      bool failed = false;
      struck = FaultInjector::failing(scene.folder.path(), faults + 1, EIO, /*persistent=*/false, [&] {
        try {
          run();
        } catch (DatabaseError const&) {
          failed = true;
        }
      });
      if (failed) {
        EXPECT_NO_THROW(run()) << "after the failure of call " << faults + 1;
      }
    }
    EXPECT_GE(faults, 4);
  }
}

/// In WAL mode the pages of a commit whose last flush fails are in the log, and whoever has the database open goes on
/// without them. When the last of these dies, the next to open it reads the log anew, and cannot know.
TEST(DatabaseWriterCommit, MayComeBackAfterItFailedIfEveryProcessDies) {
  bool cameBack = false;
  for (long call = 1; call <= 60 && !cameBack && !HasFailure(); ++call) {
    SCOPED_TRACE(call);
    Scene scene("WAL");
    std::string const before = scene.content();
    SQLitePeer peer(scene.path);
    ASSERT_EQ(peer.exec("UPDATE t SET a = a"), "ok");
    DatabaseError failure("(nothing failed)", -1);
    FaultInjector::failing(scene.folder.path(), call, EIO, /*persistent=*/false,
                           [&] { failure = failureOf([&] { scene.run(operations[0]); }); });
    std::string const live = peer.rows("SELECT * FROM t; SELECT * FROM log");
    EXPECT_EQ(scene.content(), live) << "everybody reads the same";
    if (failure.code != -1) {
      EXPECT_EQ(live, before) << failure.detail;
    }
    peer.kill();
    std::string const later = scene.content();
    EXPECT_EQ(rowsAsText(scene.path, "PRAGMA integrity_check"), "ok");
    if (later == live) continue;
    EXPECT_EQ(failure, DatabaseError("disk I/O error [COMMIT]", SQLITE_IOERR_FSYNC));
    scene.makeAnew();
    scene.run(operations[0]);
    EXPECT_EQ(scene.content(), later) << "the new content whole";
    cameBack = true;
  }
  EXPECT_TRUE(cameBack);
}

INSTANTIATE_TEST_SUITE_P(InEachJournalMode, DatabaseWriterFaults, testing::Values("DELETE", "WAL"),
                         [](auto const& mode) { return mode.param; });

}  // namespace
}  // namespace tolva
