// SPDX-License-Identifier: Apache-2.0
// What an import leaves behind when the disk fails, or the process dies, at any of its file calls.
#include <gtest/gtest.h>

#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"
#include "transfer/ImportScene.hpp"

namespace tolva {
namespace {

/// So many rows that a batch ends among them, with texts of `length` letters.
std::string someRows(int count, std::size_t length) {
  std::string csv = "a,b\n";
  for (int row = 1; row <= count; ++row) csv += std::to_string(row) + "," + std::string(length, 'x') + "\n";
  return csv;
}

struct Kind {
  char const* says;
  bool fresh;
  char const* journal;
  bool spills = false;  // whether the rows outgrow the cache of 2 MB, so that the file is written before the end
};

/// A database file and a file that is imported into it.
class Scene {
 public:
  explicit Scene(Kind const& kind)
      : file(other.write("in.csv", kind.spills ? someRows(2510, 1000) : someRows(510, 1))), kind_(kind) {
    makeAnew();
  }

  void makeAnew() {
    for (char const* suffix : {"", "-journal", "-wal", "-shm"}) std::filesystem::remove(path.string() + suffix);
    TemporaryDatabase const made(
        data, "a.db",
        std::string("PRAGMA journal_mode = ") + kind_.journal +
            "; CREATE TABLE old(a); INSERT INTO old VALUES ('kept');" +
            (kind_.fresh ? "" : "CREATE TABLE t(a INTEGER, b TEXT); INSERT INTO t VALUES (0, 'was here')"));
    if (!kind_.fresh) schema = schemaOf(path, "t");
  }

  std::string content() const {
    return rowsAsText(path, "SELECT * FROM old; SELECT sql FROM sqlite_schema") +
           (has("t") ? "\n" + rowsAsText(path, "SELECT a, b FROM t") : "");
  }

  void import() const {
    FileTransfer transfer;
    auto const measure = [&](std::int64_t count) {
      if (count % 500 == 0) sizeWithin = std::filesystem::file_size(path);
    };
    transfer.importCSV(file, path, "t", schema, {}, measure, noTask);
  }

  TemporaryFolder const data;
  TemporaryFolder const other;
  std::filesystem::path const path = data / "a.db";
  std::filesystem::path const file;
  std::optional<TableSchema> schema;
  mutable std::uintmax_t sizeWithin = 0;  // of the database, before the transaction ended

 private:
  bool has(std::string const& table) const {
    return rowsAsText(path, "SELECT count(*) FROM sqlite_schema WHERE name = '" + table + "'") != "0";
  }

  Kind const kind_;
};

class FileTransferImportFaults : public testing::TestWithParam<Kind> {};

TEST_P(FileTransferImportFaults, LeaveTheOldContentOrTheNew) {
  Scene scene(GetParam());
  std::string const before = scene.content();
  scene.import();
  std::string const after = scene.content();
  ASSERT_NE(before, after);
  EXPECT_EQ(scene.sizeWithin > 100'000, GetParam().spills);
  long const calls = forEachFault(
      scene.data.path(), [&] { scene.makeAnew(); }, [&] { scene.import(); },
      [&](FaultMode, long, FaultOutcome const& outcome) {
        EXPECT_EQ(rowsAsText(scene.path, "PRAGMA integrity_check"), "ok");
        std::string const content = scene.content();
        ASSERT_TRUE(content == before || content == after) << content;
        if (outcome.told == FaultOutcome::Told::success) {
          EXPECT_EQ(content, after);
        }
        if (outcome.told == FaultOutcome::Told::failure) {
          EXPECT_EQ(content, before) << outcome.text;
        }
        if (content == before) {
          scene.import();
          EXPECT_EQ(scene.content(), after);
        }
      },
      GetParam().spills ? 12 : 250);
  EXPECT_GE(calls, 8);
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, FileTransferImportFaults,
                         testing::Values(Kind{"IntoANewTable", true, "DELETE"}, Kind{"IntoATable", false, "DELETE"},
                                         Kind{"IntoANewTableInWALMode", true, "WAL"},
                                         Kind{"IntoATableInWALMode", false, "WAL"},
                                         Kind{"IntoANewTableBeyondTheCache", true, "DELETE", true},
                                         Kind{"IntoATableBeyondTheCache", false, "DELETE", true}),
                         [](auto const& kind) { return kind.param.says; });

/// At each of its reads: by the inference, and by the rows when some are inserted.
TEST(FileTransferImport, RollsBackWhenTheFileFailsInTheMiddle) {
  for (bool const fresh : {true, false}) {
    ImportScene scene(fresh ? "PRAGMA user_version = 1" : "CREATE TABLE t(a, b)");
    std::string const before = scene.tables();
    TemporaryFolder const other;
    auto const file = other.write("in.csv", someRows(1000, 200));
    auto const schema = fresh ? std::nullopt : std::optional(schemaOf(scene.database.path(), "t"));
    long const reads = [&] {
      FaultInjector const injector(other.path(), {.reads = true});
      scene.import(file, schema);
      return injector.calls();
    }();
    scene.database.run(fresh ? "DROP TABLE t" : "DELETE FROM t");
    bool failedAmongRows = false;
    for (long n = 1; n <= reads; ++n) {
      SCOPED_TRACE(n);
      FaultInjector const injector(other.path(), {.at = n, .error = EIO, .reads = true});
      EXPECT_EQ(systemFailureOf([&] { scene.import(file, schema); }), "EIO in.csv");
      failedAmongRows = failedAmongRows || !scene.told.empty();
      EXPECT_EQ(scene.tables(), before);
      if (!fresh) {
        EXPECT_EQ(scene.rows(), "");
      }
    }
    EXPECT_TRUE(failedAmongRows);
    EXPECT_EQ(scene.import(file, schema), 1000);
  }
}

/// Reading this one fails with EIO; a hardened kernel refuses to open it.
TEST(FileTransferImport, PassesOnThatTheFileCannotBeRead) {
  ImportScene scene;
  std::string const failure = systemFailureOf([&] { scene.import("/proc/self/mem", {}); });
  EXPECT_TRUE(failure == "EIO mem" || failure == "EACCES mem") << failure;
  EXPECT_EQ(scene.tables(), "");
}

}  // namespace
}  // namespace tolva
