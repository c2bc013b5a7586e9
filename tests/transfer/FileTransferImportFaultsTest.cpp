// SPDX-License-Identifier: Apache-2.0
// What an import leaves behind when the disk fails, or the process dies, at any of its file calls.
#include <gtest/gtest.h>

#include "support/FaultInjector.hpp"
#include "support/SystemFailure.hpp"
#include "transfer/ImportScene.hpp"

namespace tolva {
namespace {

/// 510 rows, so that a batch ends among them.
std::string shortRows() {
  std::string csv = "a,b\n";
  for (int row = 1; row <= 510; ++row) csv += std::to_string(row) + ",x\n";
  return csv;
}

struct Kind {
  char const* says;
  bool fresh;
  char const* journal;
};

/// A database file and a file that is imported into it.
class Scene {
 public:
  explicit Scene(Kind const& kind) : kind_(kind) { makeAnew(); }

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
    transfer.importCSV(
        file, path, "t", schema, {}, [](std::int64_t) {}, noTask);
  }

  TemporaryFolder const data;
  TemporaryFolder const other;
  std::filesystem::path const path = data / "a.db";
  std::filesystem::path const file = other.write("in.csv", shortRows());
  std::optional<TableSchema> schema;

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
      });
  EXPECT_GE(calls, 8);
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, FileTransferImportFaults,
                         testing::Values(Kind{"IntoANewTable", true, "DELETE"}, Kind{"IntoATable", false, "DELETE"},
                                         Kind{"IntoANewTableInWALMode", true, "WAL"},
                                         Kind{"IntoATableInWALMode", false, "WAL"}),
                         [](auto const& kind) { return kind.param.says; });

/// Reading this one fails with EIO; a hardened kernel refuses to open it.
TEST(FileTransferImport, PassesOnThatTheFileCannotBeRead) {
  ImportScene scene;
  std::string const failure = systemFailureOf([&] { scene.import("/proc/self/mem", {}); });
  EXPECT_TRUE(failure == "EIO mem" || failure == "EACCES mem") << failure;
  EXPECT_EQ(scene.tables(), "");
}

}  // namespace
}  // namespace tolva
