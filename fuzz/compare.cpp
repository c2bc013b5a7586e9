// SPDX-License-Identifier: Apache-2.0
// Any bytes as two database files: a comparison never changes them, leaves nothing but its result, and ends within its
// budget; what it counts in undamaged files is what plain statements without an index count.

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/MemoryBudget.hpp"
#include "core/ProgressDeadline.hpp"
#include "core/RowIdentityResolver.hpp"
#include "core/SQLIdentifier.hpp"
#include "core/SQLiteStatement.hpp"
#include "fuzz/Expect.hpp"
#include "platform/JoinedText.hpp"
#include "platform/UTF8.hpp"
#include "snapshots/DatabaseDiffService.hpp"
#include "snapshots/StoreLock.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr ComparisonLimits limits{.storagePages = 256, .tableSeconds = 0.5, .totalSeconds = 2};
constexpr std::size_t mostRows = 200;  // that are looked at, of one table
constexpr auto recountTime = 1s;

/// A folder that is the process's own, with the two files and the temporary folder of the comparison.
class Scratch {
 public:
  Scratch() : folder_(std::filesystem::temp_directory_path() / ("tolva-fuzz-compare-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_ / "tmp");
    setenv("TMPDIR", (folder_ / "tmp").c_str(), 1);
  }
  ~Scratch() { std::filesystem::remove_all(folder_); }

  std::filesystem::path file(char const* name) const { return folder_ / name; }

  void write(char const* name, std::string const& bytes) const { std::ofstream(file(name), std::ios::binary) << bytes; }

  std::string read(char const* name) const {
    std::ifstream stream(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  void checkEntries() const {
    for (auto const& entry : std::filesystem::directory_iterator(folder_)) {
      std::string const name = entry.path().filename();
      expect(name == "a.db" || name == "b.db" || name == "tmp" || name == "lock" || name.ends_with("-shm") ||
                 name.ends_with("-wal"),
             "a comparison leaves nothing beside a snapshot");
    }
    for (auto const& own : std::filesystem::directory_iterator(folder_ / "tmp")) {
      expect(std::filesystem::is_empty(own), "a closed comparison leaves nothing");
    }
  }

 private:
  std::filesystem::path const folder_;
};

std::shared_ptr<SnapshotLease const> leaseOf(std::filesystem::path const& file) {
  Snapshot const record{.id = UUID::make()};
  return std::make_shared<SnapshotLease const>(record, file, StoreLock(file.parent_path() / "lock", LockKind::shared));
}

// The oracle -------------------------------------------------------------------------------------------

/// Both files on one connection, read without the help of an index.
class Recount {
 public:
  Recount(std::filesystem::path const& before, std::filesystem::path const& after)
      : connection_(SQLiteConnection::open(before, {.readOnly = true})) {
    connection_->execute("ATTACH ? AS newer", {after.string()});
  }

  bool isUndamaged() {
    for (char const* name : {"main", "newer"}) {
      SQLiteStatement row = connection_->prepare("PRAGMA " + std::string(name) + ".integrity_check(1)");
      if (!row.step() || row.value(0, false) != SQLiteValue("ok")) return false;
    }
    return true;
  }

  void check(TableDifference const& difference) {
    std::string const table = quoteIdentifier(difference.name);
    ComparisonIdentity const identity = RowIdentityResolver::resolve(*connection_, "main", difference.name, {});
    std::vector<std::string> match;
    for (std::size_t key = 0; key < identity.columns.size(); ++key) {
      std::string const name = quoteIdentifier(identity.columns[key]);
      match.push_back("a." + name + " COLLATE " + identity.collations[key] + " = b." + name);
    }
    std::vector<std::string> differ;
    for (std::string const& column : identity.allColumns) {
      std::string const x = "a." + quoteIdentifier(column);
      std::string const y = "b." + quoteIdentifier(column);
      differ.push_back("typeof(" + x + ") <> typeof(" + y + ") OR hex(CAST(" + x + " AS BLOB)) <> hex(CAST(" + y +
                       " AS BLOB)) OR (typeof(" + x + ") = 'real' AND " + x + " <> " + y + ")");
    }
    std::string const older = " FROM main." + table + " a NOT INDEXED ";
    std::string const newer = " FROM newer." + table + " b NOT INDEXED ";
    std::string const same = joined(match, " AND ");
    std::string const without = "WHERE NOT EXISTS (SELECT 1";
    expect(count(newer + without + older + "WHERE " + same + ")") == difference.inserted, "inserted rows are new");
    expect(count(older + without + newer + "WHERE " + same + ")") == difference.deleted, "deleted rows have gone");
    expect(count(older + "JOIN newer." + table + " b NOT INDEXED ON " + same + " WHERE " + joined(differ, " OR ")) ==
               difference.updated,
           "updated rows differ");
  }

  sqlite3* handle() const { return connection_->handle(); }

 private:
  std::int64_t count(std::string const& from) {
    SQLiteStatement row = connection_->prepare("SELECT count(*)" + from);
    expect(row.step(), "a count is a row");
    return *row.value(0, false).asInteger();
  }

  std::shared_ptr<SQLiteConnection> const connection_;
};

/// Files that SQLite itself takes for damaged are left alone, and so is what takes long to count.
void recount(Scratch const& scratch, std::vector<TableDifference> const& differences) {
  try {
    Recount recount(scratch.file("a.db"), scratch.file("b.db"));
    MemoryBudget const memory(MemoryBudget::ordinary);
    ProgressDeadline const time(recount.handle(), uptime() + recountTime, 1000, DeadlineTest::reached, {});
    if (!recount.isUndamaged()) return;
    for (TableDifference const& difference : differences) {
      if (difference.compared()) recount.check(difference);
    }
  } catch (DatabaseError const&) {
    // Interrupted, or refused.
  }
}

// Comparing --------------------------------------------------------------------------------------------

void readCells(DatabaseDiffService& service, TableDifference const& difference, DifferenceRow const& row) {
  try {
    auto const cells = service.cells(difference.id(), row.id, {});
    for (DifferenceCell const& cell : cells) {
      expect(cell.before.has_value() == (row.kind != "Inserted"), "a side is there or not");
      expect(cell.after.has_value() == (row.kind != "Deleted"), "a side is there or not");
      expect(isValidUTF8(cell.before.value_or("")) && isValidUTF8(cell.after.value_or("")), "a cell is UTF-8");
    }
    expect(std::ranges::any_of(cells, &DifferenceCell::changed), "a row that differs has a cell that does");
  } catch (DatabaseError const&) {
    // A damaged file may not give the row again.
  }
}

void readRows(DatabaseDiffService& service, TableDifference const& difference) {
  std::map<std::string, std::int64_t> kinds;
  std::size_t read = 0;
  std::int64_t last = 0;
  for (auto rows = service.rows(difference.id(), 0, 100, {}); !rows.empty() && read < mostRows;
       rows = service.rows(difference.id(), last, 100, {})) {
    for (DifferenceRow const& row : rows) {
      expect(row.id == ++last, "rows are numbered");
      expect(isValidUTF8(row.identity), "an identity is UTF-8");
      ++kinds[row.kind];
      if (++read < 20) readCells(service, difference, row);
    }
  }
  bool const all = read < mostRows;
  expect(!all || kinds["Inserted"] == difference.inserted, "as many rows as were counted are inserted");
  expect(!all || kinds["Updated"] == difference.updated, "as many rows as were counted are updated");
  expect(!all || kinds["Deleted"] == difference.deleted, "as many rows as were counted are deleted");
}

void checkDifference(DatabaseDiffService& service, TableDifference const& difference) {
  expect(isValidUTF8(difference.id()) && isValidUTF8(difference.explanation), "a difference is UTF-8");
  if (difference.compared()) return readRows(service, difference);
  expect(difference.inserted == 0 && difference.updated == 0 && difference.deleted == 0, "what is not compared is 0");
}

void compare(Scratch const& scratch) {
  DatabaseDiffService service(limits);
  try {
    auto const differences = service.compare(leaseOf(scratch.file("a.db")), leaseOf(scratch.file("b.db")), {}, {});
    for (TableDifference const& difference : differences) checkDifference(service, difference);
    recount(scratch, differences);
  } catch (DatabaseError const& error) {
    expect(isValidUTF8(error.errorDescription()), "an error reads as UTF-8");
  }
}

}  // namespace
}  // namespace tolva

/// Two bytes say how long the first file is.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static tolva::Scratch const scratch;
  if (size < 2) return 0;
  std::string const bytes(data + 2, data + size);
  std::size_t const first = std::min<std::size_t>(bytes.size(), data[0] + data[1] * 256U);
  scratch.write("a.db", bytes.substr(0, first));
  scratch.write("b.db", bytes.substr(first));
  tolva::compare(scratch);
  scratch.checkEntries();
  tolva::expect(scratch.read("a.db") + scratch.read("b.db") == bytes, "a comparison leaves the snapshots as they are");
  return 0;
}
