// SPDX-License-Identifier: Apache-2.0
#include "core/QuerySpool.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <limits>
#include <sstream>

#include "platform/TaskCancellation.hpp"
#include "platform/UUID.hpp"
#include "support/Environment.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

using Row = QuerySpool::Row;

struct Scene {
  /// Copies the result of `sql` from position `first` on.
  void add(QuerySpool& spool, std::string const& sql, std::int64_t first = 0) {
    auto const copy = [&](QuerySpool::Writer& writer) {
      SQLiteStatement result = connection->prepare(sql);
      for (std::int64_t position = first; result.step(); ++position) writer.add(position, result);
    };
    spool.fill(copy, noTask);
  }

  TemporaryFolder const folder;
  Environment const temporary{"TMPDIR", folder.path()};
  std::shared_ptr<SQLiteConnection> const connection =
      SQLiteConnection::open({}, {.readOnly = false, .create = true, .inMemory = true});
};

TEST(QuerySpool, IsAFileOfItsOwnerThatGoesWithIt) {
  Scene const scene;
  std::filesystem::path path;
  {
    QuerySpool const spool;
    path = spool.path();
    EXPECT_EQ(path.parent_path(), scene.folder / ("tolva-" + std::to_string(::geteuid())));
    std::string const name = path.filename();
    std::string const prefix = "tolva-query-";
    std::string const uuid = name.substr(prefix.size(), 36);
    ASSERT_TRUE(UUID::parse(uuid)) << name;
    EXPECT_EQ(name, prefix + UUID::parse(uuid)->text() + ".sqlite");
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
  }
  EXPECT_TRUE(std::filesystem::is_empty(path.parent_path()));
}

TEST(QuerySpool, CannotBeOpenedWithoutAPrivateFolder) {
  DatabaseError const refusal("unable to open database file", SQLITE_CANTOPEN);
  TemporaryFolder const folder;
  {
    Environment const temporary("TMPDIR", folder / "absent");
    EXPECT_EQ(failureOf([] { QuerySpool(); }), refusal);
  }
  Environment const temporary("TMPDIR", folder.path());
  std::string const name = "tolva-" + std::to_string(::geteuid());
  std::filesystem::create_directory(folder / name);
  ASSERT_EQ(::chmod((folder / name).c_str(), 0777), 0);
  EXPECT_EQ(failureOf([] { QuerySpool(); }), refusal);
  EXPECT_TRUE(std::filesystem::is_empty(folder / name));
}

TEST(QuerySpool, GivesRowsBackByPosition) {
  Scene scene;
  QuerySpool spool;
  scene.add(spool, "SELECT 1, 'a', NULL UNION ALL SELECT 2, 'b', 9e999 UNION ALL SELECT 3, 'c', 0.5");
  double const infinity = std::numeric_limits<double>::infinity();
  std::vector<Row> const rows{{1, "a", Null{}}, {2, "b", infinity}, {3, "c", 0.5}};
  EXPECT_EQ(spool.rows(0, 3), rows);
  EXPECT_EQ(spool.rows(-5, 100), rows);
  EXPECT_EQ(spool.rows(1, 2), std::vector<Row>{rows[1]});
  EXPECT_TRUE(spool.rows(3, 100).empty());
  EXPECT_EQ(spool.row(2), rows[2]);
  EXPECT_EQ(spool.row(3), std::nullopt);
}

TEST(QuerySpool, ForgetsAFillThatFails) {
  Scene scene;
  QuerySpool spool;
  scene.add(spool, "SELECT 1");
  EXPECT_EQ(failureOf([&] { scene.add(spool, "SELECT 2 UNION ALL SELECT abs(-9223372036854775808)", 1); }).detail,
            "integer overflow");
  EXPECT_EQ(spool.rows(0, 100), std::vector<Row>{{1}});
  EXPECT_EQ(failureOf([&] { scene.add(spool, "SELECT 3"); }),
            DatabaseError("UNIQUE constraint failed: result.position [INSERT INTO result VALUES (?, ?)]", 1555));
  scene.add(spool, "SELECT 4", 1);
  EXPECT_EQ(spool.rows(0, 100), (std::vector<Row>{{1}, {4}}));
}

TEST(QuerySpool, ForgetsTheFillOfACancelledTask) {
  Scene scene;
  QuerySpool spool;
  std::stop_source task;
  auto const copy = [&](QuerySpool::Writer& writer) {
    SQLiteStatement result = scene.connection->prepare("SELECT 1");
    result.step();
    writer.add(0, result);
    task.request_stop();
  };
  EXPECT_THROW(spool.fill(copy, task.get_token()), TaskCancelled);
  EXPECT_TRUE(spool.rows(0, 100).empty());
}

// A page ends with the row with which it comes to 4 MiB ---------------------------------------------

struct PageCase {
  char const* says;
  std::int64_t text;  // bytes in each row
  std::size_t rows;
};

PageCase const pageCases[] = {
    {"64 rows of a 64th of 4 MiB", 65'536 - 20, 64},
    {"the same less one byte each", 65'536 - 21, 65},
};

TEST(QuerySpool, EndsAPageWithTheRowThatReaches4MiB) {
  for (PageCase const& page : pageCases) {
    SCOPED_TRACE(page.says);
    Scene scene;
    QuerySpool spool;
    scene.add(spool,
              "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 70) SELECT printf('%.*c', " +
                  std::to_string(page.text) + ", 'x') FROM n");
    EXPECT_EQ(spool.rows(0, 500).size(), page.rows);
  }
}

// Heads --------------------------------------------------------------------------------------------

struct HeadCase {
  char const* says;
  char const* sql;
  std::vector<std::int64_t> heads;  // the length by column, -1 for none
  std::int64_t taken;               // bytes, without those of the row itself
};

HeadCase const headCases[] = {
    {"no large value", "SELECT 1, 'a', NULL, printf('%.*c', 65536, 'x')", {-1, -1, -1, -1}, 0},
    {"an empty blob", "SELECT x''", {0}, 0},
    {"a small blob", "SELECT x'010203'", {3}, 3},
    {"64 KiB", "SELECT zeroblob(65536)", {65'536}, 65'536},
    {"more than 64 KiB", "SELECT zeroblob(65537)", {65'536}, 65'536},
    {"a text of more than 64 KiB", "SELECT printf('%.*c', 65537, 'x')", {65'536}, 65'536},
    {"8 MiB", "SELECT zeroblob(8388608)", {65'536}, 65'536},
    {"more than 8 MiB", "SELECT zeroblob(8388609), x'01'", {-1, 1}, 1},
    {"four of 100 KB take all of the row's 256 KiB",
     "SELECT zeroblob(100000), zeroblob(100000), zeroblob(100000), zeroblob(100000), zeroblob(100000), x''",
     {65'536, 65'536, 65'536, 65'536, -1, -1},
     262'144},
    {"what is left of 256 KiB",
     "SELECT zeroblob(1), zeroblob(100000), zeroblob(100000), zeroblob(100000), zeroblob(100000), x'0102'",
     {1, 65'536, 65'536, 65'536, 65'535, -1},
     262'144},
};

TEST(QuerySpool, CapturesTheHeadsOfLargeValues) {
  for (HeadCase const& one : headCases) {
    SCOPED_TRACE(one.says);
    Scene scene;
    QuerySpool spool;
    std::int64_t taken = 0;
    std::vector<std::int64_t> sizes;
    auto const copy = [&](QuerySpool::Writer& writer) {
      SQLiteStatement result = scene.connection->prepare(one.sql);
      result.step();
      for (SQLiteValue const& value : result.row(true)) sizes.push_back(value.memorySize() - 32);
      taken = writer.add(7, result);
    };
    spool.fill(copy, noTask);
    for (std::size_t column = 0; column < one.heads.size(); ++column) {
      auto const head = spool.head(7, static_cast<std::int64_t>(column));
      EXPECT_EQ(head ? std::ssize(head->bytes) : -1, one.heads[column]) << column;
      if (head) {
        EXPECT_EQ(head->total, sizes[column]);
        EXPECT_EQ(head->type, head->bytes.size() > 0 && head->bytes[0] == 'x' ? "text" : "blob");
      }
    }
    std::int64_t const row = taken - one.taken;
    EXPECT_GT(row, 0);
    EXPECT_LT(row, 70'000);
  }
}

// Somebody else's hands on the file ----------------------------------------------------------------

TEST(QuerySpool, LetsNoOtherConnectionIn) {
  Scene scene;
  QuerySpool spool;
  scene.add(spool, "SELECT 1");
  SQLitePeer peer(spool.path());
  for (char const* const sql : {"DELETE FROM result", "DROP TABLE result", "SELECT * FROM result"}) {
    EXPECT_EQ(peer.exec(sql), "error 5 database is locked") << sql;
  }
  EXPECT_EQ(spool.rows(0, 100), std::vector<Row>{{1}});
}

/// Changes bytes of the file, in which every row but the last few is only on the disk.
void tamper(std::filesystem::path const& path, std::function<void(std::string&)> const& change) {
  std::ostringstream read;
  read << std::ifstream(path, std::ios::binary).rdbuf();
  std::string content = read.str();
  change(content);
  std::fstream(path, std::ios::binary | std::ios::in | std::ios::out) << content;
}

/// The row at position 7 begins with "needle"; it is as long as the others.
std::string const manyRows =
    "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 4999) "
    "SELECT iif(i = 7, 'needle', 'straw') || printf('%.*c', 1000, 'x') FROM n";

struct TamperedCase {
  char const* says;
  std::function<void(std::string&)> change;
  DatabaseError row;   // what comes of the row itself
  DatabaseError rows;  // and of those around it
};

/// Puts `text` where it was found, from `before` bytes ahead of the needle on.
std::function<void(std::string&)> atTheNeedle(std::size_t before, std::string text) {
  return [before, text = std::move(text)](std::string& content) {
    content.replace(content.find("needle") - before, text.size(), text);
  };
}

DatabaseError const noFailure("(nothing failed)", -1);
DatabaseError const gone("Query result is no longer available.", 1);
DatabaseError const malformed("database disk image is malformed", SQLITE_CORRUPT);

TamperedCase const tamperedCases[] = {
    {"nothing", [](std::string&) {}, noFailure, noFailure},
    {"a text without its quote", atTheNeedle(1, "x"), gone, gone},
    {"a kind of value that there is not", atTheNeedle(14, "tixt"), gone, gone},
    {"a byte that is no character", atTheNeedle(0, "\xff"), gone, gone},
    {"a page of zeros",
     [](std::string& content) {
       content.replace(content.find("needle") / 16'384 * 16'384, 16'384, std::string(16'384, '\0'));
     },
     malformed, malformed},
};

TEST(QuerySpool, SaysThatARowIsGoneWhichSomebodyChanged) {
  for (TamperedCase const& one : tamperedCases) {
    SCOPED_TRACE(one.says);
    Scene scene;
    QuerySpool spool;
    scene.add(spool, manyRows);
    tamper(spool.path(), one.change);
    EXPECT_EQ(failureOf([&] { spool.row(7); }), one.row);
    EXPECT_EQ(failureOf([&] { spool.rows(0, 100); }), one.rows);
    EXPECT_EQ(spool.rows(4'900, 5'000).size(), 100U) << "far from it";
  }
}

/// The byte before the coded row ends the number that tells a blob, if even, from a text of the same length.
TEST(QuerySpool, PassesOverARowThatIsNoBlob) {
  Scene scene;
  QuerySpool spool;
  scene.add(spool, manyRows);
  tamper(spool.path(), [](std::string& content) { content[content.rfind('[', content.find("needle")) - 1] |= 1; });
  EXPECT_EQ(spool.row(7), std::nullopt);
  EXPECT_EQ(spool.rows(0, 100).size(), 99U);
}

TEST(QuerySpool, LivesWithoutTheNameOfItsFile) {
  Scene scene;
  QuerySpool spool;
  scene.add(spool, manyRows);
  std::filesystem::remove(spool.path());
  EXPECT_EQ(spool.rows(0, 100).size(), 100U);
  scene.add(spool, "SELECT 1", 5'000);
  EXPECT_EQ(spool.row(5'000), Row{1});
}

}  // namespace
}  // namespace tolva
