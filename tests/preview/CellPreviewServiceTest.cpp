// SPDX-License-Identifier: Apache-2.0
#include "preview/CellPreviewService.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <limits>
#include <thread>

#include "platform/TaskCancellation.hpp"
#include "platform/Uptime.hpp"
#include "preview/TestPNG.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/FaultInjector.hpp"
#include "support/HangingHelpers.hpp"
#include "support/NoTask.hpp"
#include "support/Patience.hpp"
#include "support/ProcessorTime.hpp"
#include "support/SQLitePeer.hpp"
#include "support/TableRows.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;

constexpr std::size_t mib = 1'048'576;

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::stop_token cancelledTask() {
  std::stop_source task;
  task.request_stop();
  return task.get_token();
}

/// A service without the programs that decode pictures.
CellPreviewService& service() {
  static CellPreviewService only{PreviewHelpers("/nonexistent")};
  return only;
}

CellPreview cached(SQLiteValue const& value) { return service().cached(value, noTask); }

// Values in memory ---------------------------------------------------------------------------------

struct CachedCase {
  SQLiteValue value;
  char const* type;
  char const* text;
};

CachedCase const cachedValues[] = {
    {42, "integer", "42"},
    {-1, "integer", "-1"},
    {0.1 + 0.2, "real", "0.30000000000000004"},
    {2.0, "real", "2.0"},
    {"", "text", ""},
    {"gr\u00fc\u00dfe", "text", "gr\u00fc\u00dfe"},
    {bytesOf("abc"), "blob", "abc"},
    {Bytes(), "blob", ""},
};

TEST(CellPreviewService, ShowsAWholeValue) {
  for (CachedCase const& each : cachedValues) {
    SCOPED_TRACE(each.text);
    CellPreview const preview = cached(each.value);
    EXPECT_EQ(preview.storageType, each.type);
    EXPECT_EQ(preview.text, each.text);
    EXPECT_EQ(preview.bytes, bytesOf(each.text));
    EXPECT_EQ(preview.totalBytes, static_cast<std::int64_t>(preview.bytes.size()));
    EXPECT_FALSE(preview.truncated());
  }
}

TEST(CellPreviewService, ShowsNull) {
  CellPreview expected{.storageType = "null", .text = "NULL"};
  EXPECT_EQ(cached(Null()), expected);
}

TEST(CellPreviewService, RefusesADeferredValue) {
  DatabaseError const refusal("The complete value must be fetched by row identity.", 1);
  EXPECT_EQ(failureOf([] { cached(LargeText{70'000}); }), refusal);
  EXPECT_EQ(failureOf([] { cached(LargeBlob{3}); }), refusal);
}

TEST(CellPreviewService, ShowsEverythingAValueCanBe) {
  CellPreview const number = cached("1700000000");
  EXPECT_EQ(number.prettyJSON, "1700000000");
  EXPECT_EQ(number.jsonTree, "$  1700000000");
  ASSERT_TRUE(number.treeNodes);
  EXPECT_EQ(number.treeNodes->at(0).value, "1700000000");
  EXPECT_EQ(number.hex, "00000000  31 37 30 30 30 30 30 30 30 30");
  ASSERT_TRUE(number.interpretation);
  EXPECT_TRUE(
      number.interpretation->ends_with("As Unix seconds: 2023-11-14T22:13:20.000Z\n"
                                       "As Unix milliseconds: 1970-01-20T16:13:20.000Z"))
      << *number.interpretation;
  CellPreview const outline = cached(bytesOf("<a><b/></a>"));
  EXPECT_EQ(outline.structuredFormat, "XML Outline");
  EXPECT_EQ(outline.structuredText, "<a>\n  <b>\n  </b>\n</a>");
  CellPreview const document = cached(bytesOf("%PDF-" + std::string(262'144, ' ')));
  EXPECT_TRUE(document.pdfSummary);
  EXPECT_FALSE(document.pdfThumbnailPNG);
}

TEST(CellPreviewService, ShowsBytesThatAreNoTextAsHex) {
  CellPreview const preview = cached(Bytes{0xFF, 0x00});
  EXPECT_EQ(preview,
            (CellPreview{.storageType = "blob", .totalBytes = 2, .bytes = {0xFF, 0}, .hex = "00000000  FF 00"}));
}

TEST(CellPreviewService, ShowsOneMiBWholeAndOfMoreItsHead) {
  std::string const text(mib, 'x');
  CellPreview const whole = cached(text);
  EXPECT_FALSE(whole.truncated());
  EXPECT_EQ(whole.text, text);
  CellPreview const head = cached(text + "y");
  EXPECT_TRUE(head.truncated());
  EXPECT_EQ(head.totalBytes, static_cast<std::int64_t>(mib) + 1);
  EXPECT_EQ(head.bytes, whole.bytes);
  EXPECT_EQ(head.text, text);
  EXPECT_EQ(head.hex, whole.hex);
}

TEST(CellPreviewService, ShowsAHeadThatEndsInsideACharacterAsHex) {
  std::string const text = std::string(mib - 1, 'x') + "\u00e9";
  EXPECT_FALSE(cached(text).text);
  EXPECT_TRUE(cached(std::string(mib - 2, 'x') + "\u00e9\u00e9").text);
}

TEST(CellPreviewService, ShowsNoJSONOfALargeDocument) {
  CellPreview const preview = cached("[\"" + std::string(300'000, 'x') + "\"]");
  EXPECT_TRUE(preview.text);
  EXPECT_FALSE(preview.prettyJSON || preview.treeNodes || preview.jsonTree);
}

TEST(CellPreviewService, GivesOnlyWholeValuesAMeaning) {
  for (char const* text : {"{\"a\":1}", "12", "<a/>", "%PDF-1.4", "2024-02-29"}) {
    SCOPED_TRACE(text);
    Bytes const bytes = bytesOf(text);
    auto const size = static_cast<std::int64_t>(bytes.size());
    CellPreview const whole = service().previewBytes("text", size, bytes, noTask);
    EXPECT_EQ(whole, service().cached(text, noTask));
    CellPreview const head = service().previewBytes("text", size + 1, bytes, noTask);
    EXPECT_EQ(
        head,
        (CellPreview{.storageType = "text", .totalBytes = size + 1, .bytes = bytes, .text = text, .hex = whole.hex}));
  }
}

// Captured heads -----------------------------------------------------------------------------------

struct HeadCase {
  char const* says;
  char const* type;
  std::int64_t total;
  std::size_t held;
  bool valid;
};

HeadCase const heads[] = {
    {"the whole of a text", "text", 3, 3, true},
    {"a head of a blob", "blob", 4, 3, true},
    {"nothing", "text", 0, 0, true},
    {"1 MiB of more", "blob", 9'000'000'000, mib, true},
    {"a byte above 1 MiB", "blob", 9'000'000'000, mib + 1, false},
    {"more than there is", "text", 2, 3, false},
    {"a negative total", "text", -1, 0, false},
    {"the least total", "blob", std::numeric_limits<std::int64_t>::min(), 3, false},
    {"a head of the greatest total", "blob", std::numeric_limits<std::int64_t>::max(), 3, true},
    {"a number", "integer", 3, 3, false},
    {"a null", "null", 0, 0, false},
    {"a type in capitals", "TEXT", 3, 3, false},
    {"no type", "", 3, 3, false},
};

TEST(CellPreviewService, ChecksACapturedHead) {
  for (HeadCase const& head : heads) {
    SCOPED_TRACE(head.says);
    auto const show = [&] { return service().previewBytes(head.type, head.total, Bytes(head.held, 'x'), noTask); };
    if (head.valid) {
      EXPECT_EQ(show().truncated(), static_cast<std::int64_t>(head.held) < head.total);
    } else {
      EXPECT_EQ(failureOf(show), DatabaseError("Invalid preview bytes.", 1));
    }
  }
}

// Stored values ------------------------------------------------------------------------------------

CellPreview fetched(fs::path const& database, std::string const& table, std::size_t row, std::string const& column) {
  TableSchema const schema = schemaOf(database, table);
  return service().fetch(database, schema, rowsOf(database, schema).at(row), column, noTask);
}

TEST(CellPreviewService, FetchesTheCellAsItIsStored) {
  TemporaryDatabase const database(
      "CREATE TABLE t(id INTEGER PRIMARY KEY, a); INSERT INTO t VALUES (1, 42),"
      "(2, 0.1 + 0.2), (3, NULL), (4, printf('%.*c', 70000, 'x')), (5, x'0102')");
  auto const of = [&](std::size_t row) { return fetched(database.path(), "t", row, "a"); };
  EXPECT_EQ(of(0), cached(42));
  EXPECT_EQ(of(1).storageType, "real");
  EXPECT_EQ(of(1).text, "0.3") << "SQLite's own text, not the shortest";
  EXPECT_EQ(of(2), cached(Null()));
  EXPECT_EQ(of(3), cached(std::string(70'000, 'x'))) << "deferred in the page";
  EXPECT_EQ(of(4), cached(Bytes{1, 2})) << "deferred in the page";
  database.run("UPDATE t SET a = 'new' WHERE id = 1");
  EXPECT_EQ(of(0).text, "new");
}

/// Nothing is converted: a person sees what the file holds.
TEST(CellPreviewService, ShowsTheBytesOfAnotherEncoding) {
  TemporaryDatabase const database(
      "PRAGMA encoding = 'UTF-16le'; CREATE TABLE t(a);"
      "INSERT INTO t VALUES ('ab'), ('\u00e9'), ('{}')");
  EXPECT_EQ(fetched(database.path(), "t", 0, "a").text, std::string("a\0b\0", 4));
  CellPreview const accent = fetched(database.path(), "t", 1, "a");
  EXPECT_FALSE(accent.text);
  EXPECT_EQ(accent.hex, "00000000  E9 00");
  EXPECT_FALSE(fetched(database.path(), "t", 2, "a").prettyJSON);
}

TEST(CellPreviewService, FetchesNothingAboveEightMiB) {
  TemporaryDatabase const database("CREATE TABLE t(a); INSERT INTO t VALUES (zeroblob(8388608)), (zeroblob(8388609))");
  EXPECT_EQ(fetched(database.path(), "t", 0, "a").totalBytes, 8'388'608);
  EXPECT_EQ(
      failureOf([&] { fetched(database.path(), "t", 1, "a"); }),
      DatabaseError("This value exceeds the safe cell-preview limit. Use table export for its full contents.", 1));
}

TEST(CellPreviewService, ShowsACellOfAViewFromThePage) {
  TemporaryDatabase const database("CREATE VIEW v AS SELECT 0.1 + 0.2 AS a, zeroblob(9) AS b");
  TableSchema const schema = schemaOf(database.path(), "v", "view");
  DatabaseRow const row = rowsOf(database.path(), schema).at(0);
  fs::remove(database.path());  // it is not asked again
  EXPECT_EQ(service().fetch(database.path(), schema, row, "a", noTask), cached(0.1 + 0.2));
  EXPECT_EQ(failureOf([&] { service().fetch(database.path(), schema, row, "b", noTask); }),
            DatabaseError("This value is deferred and the object has no stable row identity. Export it instead.", 1));
}

TEST(CellPreviewService, RefusesAColumnThatIsNotThere) {
  TemporaryDatabase const database("CREATE TABLE t(id INTEGER PRIMARY KEY, Name); INSERT INTO t VALUES (1, 'x')");
  TableSchema const schema = schemaOf(database.path(), "t");
  DatabaseRow row = rowsOf(database.path(), schema).at(0);
  DatabaseError const gone("The selected column is no longer available.", 1);
  auto const fetch = [&](char const* column) { service().fetch(database.path(), schema, row, column, noTask); };
  EXPECT_EQ(failureOf([&] { fetch("other"); }), gone);
  EXPECT_EQ(failureOf([&] { fetch("name"); }), gone) << "names are exact";
  row.values.pop_back();
  EXPECT_EQ(failureOf([&] { fetch("Name"); }), gone) << "outside the row";
  EXPECT_NO_THROW(fetch("id"));
}

TEST(CellPreviewService, RefusesARowWithoutAUsableIdentity) {
  TemporaryDatabase const database("CREATE TABLE t(k TEXT PRIMARY KEY, a); INSERT INTO t VALUES ('k', 1)");
  TableSchema const schema = schemaOf(database.path(), "t");
  DatabaseRow row = rowsOf(database.path(), schema).at(0);
  for (auto const& identity :
       std::vector<std::vector<SQLiteValue>>{{}, {"k", "k"}, {LargeText{70'000}}, {LargeBlob{70'000}}}) {
    row.identity = identity;
    EXPECT_EQ(failureOf([&] { service().fetch(database.path(), schema, row, "a", noTask); }),
              DatabaseError("This row has no usable identity. Refresh and select it again.", 1));
  }
}

TEST(CellPreviewService, RefusesARowThatIsGoneOrIsTwo) {
  TemporaryDatabase const database("CREATE TABLE t(k, a); INSERT INTO t VALUES (1, 'one'), (NULL, 'x'), (NULL, 'y')");
  TableSchema schema = schemaOf(database.path(), "t");
  schema.identity = {"k"};
  auto const fetch = [&](SQLiteValue const& key) {
    return service().fetch(database.path(), schema, {.values = {key, "seen"}, .identity = {key}}, "a", noTask);
  };
  EXPECT_EQ(fetch(1).text, "one");
  EXPECT_EQ(failureOf([&] { fetch(2); }), DatabaseError("This row no longer exists. Refresh the table.", 1));
  EXPECT_EQ(failureOf([&] { fetch(Null()); }),
            DatabaseError("This identity matches multiple rows. Preview cannot select one safely.", 1));
}

/// The column is looked for first, then a view's cell is shown or not, then the identity is looked at.
TEST(CellPreviewService, ChecksWhatIsFetchedInOrder) {
  TableSchema const table{
      .object = {.name = "t", .kind = "table", .sql = ""}, .columns = {{.name = "a"}}, .identity = {"k", "l"}};
  TableSchema view = table;
  view.identity.clear();
  auto const fetch = [](TableSchema const& schema, DatabaseRow const& row, char const* column) {
    return failureOf([&] { service().fetch("/nowhere/a.db", schema, row, column, noTask); }).detail;
  };
  std::string const gone = "The selected column is no longer available.";
  std::string const unusable = "This row has no usable identity. Refresh and select it again.";
  EXPECT_EQ(fetch(table, {.values = {1}, .identity = {}}, "b"), gone);
  EXPECT_EQ(fetch(view, {.values = {LargeBlob{9}}, .identity = {}}, "b"), gone);
  EXPECT_EQ(fetch(table, {.values = {1}, .identity = {1, LargeText{70'000}}}, "a"), unusable);
  EXPECT_EQ(service().fetch("/nowhere/a.db", view, {.values = {1}, .identity = {5}}, "a", noTask), cached(1));
}

// Cancelling ---------------------------------------------------------------------------------------

TEST(CellPreviewService, DoesNothingForACancelledTask) {
  TemporaryDatabase const database("CREATE TABLE t(a); INSERT INTO t VALUES (1)");
  TableSchema const schema = schemaOf(database.path(), "t");
  DatabaseRow const row = rowsOf(database.path(), schema).at(0);
  TemporaryFolder const folder;
  EXPECT_THROW(service().fetch(database.path(), schema, row, "none", cancelledTask()), TaskCancelled);
  EXPECT_THROW(service().cached(1, cancelledTask()), TaskCancelled);
  EXPECT_THROW(service().previewBytes("text", 0, {}, cancelledTask()), TaskCancelled);
  EXPECT_EQ(failureOf([] { service().previewBytes("text", -1, {}, cancelledTask()); }),
            DatabaseError("Invalid preview bytes.", 1))
      << "a head is checked before it is shown";
  EXPECT_THROW(service().save({}, folder / "a.bin", database.path(), cancelledTask()), TaskCancelled);
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

TEST(CellPreviewService, StopsTheRunningFetchWithItsTask) {
  TemporaryDatabase const database(
      "CREATE VIEW v AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i AS id, i AS a FROM n");
  TableSchema const endless{.object = {.name = "v", .kind = "table", .sql = ""},
                            .columns = {{.name = "id"}, {.name = "a"}},
                            .identity = {"id"}};
  std::stop_source task;
  std::jthread const canceller([&] {
    std::this_thread::sleep_for(50ms);
    task.request_stop();
  });
  auto const before = processorTime();
  EXPECT_EQ(failureOf([&] {
              service().fetch(database.path(), endless, {.values = {1, 1}, .identity = {-1}}, "a", task.get_token());
            }).errorDescription(),
            "Cancelled");
  EXPECT_LT(processorTime() - before, 2500ms) << "the task ends it, not the clock";
}

TEST(CellPreviewService, StopsTheRunningFetchAndNothingElse) {
  TemporaryDatabase const database(
      "CREATE TABLE t(a); INSERT INTO t VALUES (7);"
      "CREATE VIEW v AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i AS id, i AS a FROM n");
  TableSchema const endless{.object = {.name = "v", .kind = "table", .sql = ""},
                            .columns = {{.name = "id"}, {.name = "a"}},
                            .identity = {"id"}};
  CellPreviewService own{PreviewHelpers("/nonexistent")};
  {
    std::jthread const canceller([&](std::stop_token const& ended) {
      for (; !ended.stop_requested(); std::this_thread::sleep_for(10ms)) own.cancellation()->cancel();
    });
    auto const before = processorTime();
    DatabaseError const failure = failureOf([&] {
      own.fetch(database.path(), endless, {.values = {1, 1}, .identity = {-1}}, "a", noTask);
    });
    EXPECT_EQ(failure.errorDescription(), "Cancelled");
    EXPECT_LT(processorTime() - before, 2500ms) << "the handle ends it, not the clock";
  }
  own.cancellation()->cancel();  // nothing runs, and nothing is remembered
  EXPECT_EQ(
      own.fetch(database.path(), schemaOf(database.path(), "t"), {.values = {1}, .identity = {1}}, "a", noTask).text,
      "7");
}

/// Cancels the task of a preview whose helper hangs. Returns the time from there to the preview's end.
std::chrono::duration<double> endedBy(HangingHelpers const& helpers, SQLiteValue const& value) {
  CellPreviewService own{PreviewHelpers(helpers.folder())};
  std::stop_source task;
  Uptime cancelled{};
  std::jthread canceller([&] {
    EXPECT_TRUE(helpers.waitForStart());
    cancelled = uptime();
    task.request_stop();
  });
  EXPECT_THROW(own.cached(value, task.get_token()), TaskCancelled);
  Uptime const ended = uptime();
  canceller.join();
  EXPECT_FALSE(helpers.runs());
  helpers.forget();
  return ended - cancelled;
}

TEST(CellPreviewService, EndsAHangingHelperWithItsTask) {
  HangingHelpers const helpers;
  for (SQLiteValue const& value : {SQLiteValue(greyPNG(9, 9)), SQLiteValue(bytesOf("%PDF-1.7"))}) {
    std::chrono::duration<double> taken = endedBy(helpers, value);
    for (int again = 0; again < 3 && taken > 1s; ++again) taken = endedBy(helpers, value);  // on a busy machine
    EXPECT_LT(taken, 1s) << "the task ends it, not the clock";
  }
}

#ifdef TOLVA_HELPERS
// Pictures -----------------------------------------------------------------------------------------

/// A service with the programs, as they were built.
CellPreviewService& serviceWithHelpers() {
  static CellPreviewService only{PreviewHelpers(TOLVA_HELPERS)};
  return only;
}

CellPreview withPicture(SQLiteValue const& value) {
  return patiently([&] { return serviceWithHelpers().cached(value, noTask); });
}

TEST(CellPreviewService, GivesPicturesAThumbnailWhateverTheirSize) {
  TOLVA_NEEDS_CORPORA();
  std::string const picture = contents(corpusFile("png-suite/basn2c08.png"));
  CellPreview const preview = withPicture(bytesOf(picture));
  ASSERT_TRUE(preview.thumbnailPNG);
  EXPECT_TRUE(std::string(preview.thumbnailPNG->begin(), preview.thumbnailPNG->end()).starts_with("\x89PNG\r\n"));
  EXPECT_FALSE(preview.text);
  Bytes const larger = bytesOf(picture + std::string(300'000, '\0'));
  EXPECT_TRUE(withPicture(larger).thumbnailPNG) << "JSON's limit is not that of pictures";
  auto const total = static_cast<std::int64_t>(picture.size()) + 1;
  EXPECT_FALSE(serviceWithHelpers().previewBytes("blob", total, bytesOf(picture), noTask).thumbnailPNG);
}

TEST(CellPreviewService, GivesAThumbnailWithinTheLimitsOfPictures) {
  EXPECT_TRUE(withPicture(greyPNG(30, 20)).thumbnailPNG);
  CellPreview const wide = withPicture(greyPNG(20'000, 100));
  EXPECT_FALSE(wide.thumbnailPNG);
  EXPECT_EQ(wide.storageType, "blob");
}
#endif

// Saving -------------------------------------------------------------------------------------------

CellPreview const threeBytes{.storageType = "blob", .totalBytes = 5, .bytes = {1, 0, 2}};

DatabaseError const ofTheDatabase("Choose a new file outside the database and its companion files.", 1);

TEST(CellPreviewService, SavesTheBytesThatAreHeld) {
  TemporaryFolder const folder;
  service().save(threeBytes, folder / "a.bin", folder / "a.db", noTask);
  service().save({}, folder / "empty.bin", folder / "a.db", noTask);
  EXPECT_EQ(folder.read("a.bin"), std::string("\1\0\2", 3));
  EXPECT_EQ(folder.read("empty.bin"), "");
}

TEST(CellPreviewService, NeverSavesOverAFile) {
  TemporaryFolder const folder;
  folder.write("a.bin", "old");
  EXPECT_EQ(failureOf([&] { service().save(threeBytes, folder / "a.bin", folder / "a.db", noTask); }),
            DatabaseError(
                "Could not create the preview file. Choose a new filename; existing files are never overwritten.", 1));
  EXPECT_EQ(folder.read("a.bin"), "old");
}

struct SaveCase {
  char const* says;
  char const* target;
  char const* source;
};

SaveCase const companions[] = {
    {"the database", "real/a.db", "real/a.db"},
    {"its log", "real/a.db-wal", "real/a.db"},
    {"its shared memory", "real/a.db-shm", "real/a.db"},
    {"its journal", "real/a.db-journal", "real/a.db"},
    {"the database by a link", "link.db", "real/a.db"},
    {"the log by a link to its folder", "folder/a.db-wal", "real/a.db"},
    {"the shared memory by a link to its folder", "folder/a.db-shm", "real/a.db"},
    {"the journal by a link to its folder", "folder/a.db-journal", "real/a.db"},
    {"the shared memory of a database that was opened by a link", "real/a.db-shm", "link.db"},
    {"the journal of a database that was opened by a link", "real/a.db-journal", "link.db"},
    {"the log by a link to where it would be", "dangling", "real/a.db"},
    {"the log by a way up and down", "real/../real/a.db-wal", "real/a.db"},
    {"the log of a database that was opened by a link", "real/a.db-wal", "link.db"},
    {"the log of a database that was opened through a folder's link", "real/a.db-wal", "folder/a.db"},
};

TEST(CellPreviewService, NeverSavesAsAFileOfTheDatabase) {
  TemporaryFolder const folder;
  fs::create_directory(folder / "real");
  folder.write("real/a.db", "database");
  fs::create_symlink("real", folder / "folder");
  fs::create_symlink("real/a.db", folder / "link.db");
  fs::create_symlink("real/a.db-wal", folder / "dangling");
  for (SaveCase const& each : companions) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(failureOf([&] { service().save(threeBytes, folder / each.target, folder / each.source, noTask); }),
              ofTheDatabase);
  }
  EXPECT_EQ(folder.read("real/a.db"), "database");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"dangling", "folder", "link.db", "real"}));
  service().save(threeBytes, folder / "real/a.db-other", folder / "real/a.db", noTask);
}

/// A folder may hold one file under both names.
TEST(CellPreviewService, NeverSavesAsAFileOfTheDatabaseInOtherCase) {
  TemporaryFolder const folder;
  fs::create_directory(folder / "real");
  fs::create_symlink("real", folder / "folder");
  auto const save = [&](char const* target) {
    service().save(threeBytes, folder / target, folder / "real/a.db", noTask);
  };
  for (char const* target : {"real/A.db", "real/a.db-WAL", "folder/A.DB-Shm", "real/A.db-JOURNAL"}) {
    EXPECT_EQ(failureOf([&] { save(target); }), ofTheDatabase) << target;
  }
  EXPECT_TRUE(fs::is_empty(folder / "real"));
  EXPECT_NO_THROW(save("A.db-wal")) << "another folder";
}

/// Somebody who may exchange a folder by a link does so while the file is being saved.
TEST(CellPreviewService, NeverSavesAsALogWhenAFolderIsExchangedMeanwhile) {
  TemporaryFolder const folder;
  fs::create_directory(folder / "real");
  fs::create_directory(folder / "other");
  fs::create_symlink("other", folder / "link");
  std::jthread const exchanger([&](std::stop_token const& ended) {
    for (bool real = true; !ended.stop_requested(); real = !real) {
      fs::create_symlink(real ? "real" : "other", folder / "new");
      fs::rename(folder / "new", folder / "link");
    }
  });
  for (int attempt = 0; attempt < 5'000 && !fs::exists(folder / "real/a.db-wal"); ++attempt) {
    try {
      service().save(threeBytes, folder / "link/a.db-wal", folder / "real/a.db", noTask);
    } catch (DatabaseError const& error) {
      EXPECT_EQ(error, ofTheDatabase);
    }
    fs::remove(folder / "other/a.db-wal");
  }
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

/// Gives the folder `from` a second name, for this process alone. False where the system does not permit it.
bool mountAlsoAt(fs::path const& from, fs::path const& to) {
  uid_t const user = ::geteuid();
  if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
  return ::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

TEST(CellPreviewService, NeverSavesAsALogByASecondNameOfTheFolder) {
  TemporaryFolder folder;
  folder.openToEverybody();
  for (char const* name : {"real", "second"}) {
    fs::create_directory(folder / name);
    fs::permissions(folder / name, fs::perms{0777});
  }
  std::string const said = asUnprivileged([&]() -> std::string {
    if (!mountAlsoAt(folder / "real", folder / "second")) return "no mount";
    return failureOf([&] { service().save(threeBytes, folder / "second/a.db-wal", folder / "real/a.db", noTask); })
        .detail;
  });
  if (said == "no mount") GTEST_SKIP() << "This system lets nobody mount a folder a second time.";
  EXPECT_EQ(said, ofTheDatabase.detail);
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

TEST(CellPreviewService, LeavesNoFileOfASaveThatWasCancelledAtAnyCall) {
  for (long call : {1, 2}) {
    SCOPED_TRACE(call);
    TemporaryFolder const folder;
    std::stop_source task;
    auto const cancel = [&] { task.request_stop(); };
    EXPECT_TRUE(FaultInjector::before(folder.path(), call, cancel, [&] {
      EXPECT_THROW(service().save(threeBytes, folder / "a.bin", folder / "a.db", task.get_token()), TaskCancelled);
    }));
    EXPECT_EQ(folder.names(), std::vector<std::string>());
  }
}

TEST(CellPreviewService, ReportsBytesThatCannotBeWritten) {
  TemporaryFolder const folder;
  FaultInjector::failing(folder.path(), 2, ENOSPC, /*persistent=*/true, [&] {
    EXPECT_EQ(failureOf([&] { service().save(threeBytes, folder / "a.bin", folder / "a.db", noTask); }),
              DatabaseError("Could not save preview bytes.", 1));
  });
  EXPECT_EQ(folder.names(), std::vector<std::string>());
}

}  // namespace
}  // namespace tolva
