// SPDX-License-Identifier: Apache-2.0
// Comparisons whose temporary folder fails, fills up, or whose process is killed.

#include <gtest/gtest.h>

#include "snapshots/ComparisonScene.hpp"
#include "support/FaultInjector.hpp"

namespace tolva {
namespace {

constexpr char const* before =
    "CREATE TABLE t(k TEXT PRIMARY KEY NOT NULL, a); INSERT INTO t VALUES ('a', 1), ('b', 2), ('c', 3);"
    "CREATE TABLE u(id INTEGER PRIMARY KEY)";
constexpr char const* after =
    "CREATE TABLE t(k TEXT PRIMARY KEY NOT NULL, a); INSERT INTO t VALUES ('b', 2), ('c', 4), ('d', 5);"
    "CREATE TABLE u(id INTEGER PRIMARY KEY)";

/// Each table has either its true numbers or none.
void expectTruth(std::vector<TableDifference> const& differences) {
  ASSERT_EQ(differences.size(), 2U);
  for (TableDifference const& each : differences) {
    TableDifference const none{.name = each.name, .kind = "table", .status = "Not compared"};
    std::string const truth = each.name == "t" ? "table:t Compared 1 1 1\n" : "table:u Compared 0 0 0\n";
    EXPECT_EQ(summaryOf({each}), each.compared() ? truth : summaryOf({none})) << each.explanation;
  }
}

/// A comparison that is read and closed, again and again.
struct FaultyComparison {
  void prepare() {
    scene.service.close();
    for (auto const& path : scene.left()) std::filesystem::remove_all(path);
  }

  void compare() { differences = scene.compare(older, newer); }

  void compareAndClose() {
    compare();
    rows = 3;
    try {
      if (differences[0].compared()) rows = scene.rows().size();
    } catch (DatabaseError const&) {
      rows = 0;
    }
    scene.service.close();
  }

  void expectTruthOf(FaultMode mode, FaultOutcome const& outcome) {
    if (outcome.told == FaultOutcome::Told::success) {
      expectTruth(differences);
      // Where nothing can be written, what was rolled back in part cannot be read either.
      EXPECT_TRUE(rows == 3 || (rows == 0 && mode == FaultMode::fullDisk)) << rows;
    }
    if (outcome.told == FaultOutcome::Told::failure) {
      EXPECT_EQ(failureOf([&] { scene.rows(); }).detail, "No row comparison is available for this table.");
    }
    EXPECT_EQ(older.use_count(), 1);
    EXPECT_EQ(newer.use_count(), 1);
  }

  void expectThatTheNextOneWorks() {
    std::size_t const left = scene.left().size();
    compare();
    expectTruth(differences);
    EXPECT_EQ(summaryOf(differences), "table:t Compared 1 1 1\ntable:u Compared 0 0 0\n");
    scene.service.close();
    EXPECT_EQ(scene.left().size(), left);
  }

  ComparisonScene scene;
  Lease const older = scene.snapshot("before.db", before);
  Lease const newer = scene.snapshot("after.db", after);
  std::vector<TableDifference> differences;
  std::size_t rows = 0;
};

TEST(DatabaseDiffFaults, LeaveNothingAndTellNothingWrong) {
  FaultyComparison faulty;
  faulty.compareAndClose();
  std::filesystem::path const folder = faulty.scene.folder / "tmp";
  long const calls = FaultInjector::count(folder, [&] { faulty.compare(); });
  auto const check = [&](FaultMode mode, long n, FaultOutcome const& outcome) {
    faulty.expectTruthOf(mode, outcome);
    // A folder that is killed or cannot be removed stays.
    if (mode != FaultMode::kill && n <= calls) {
      EXPECT_TRUE(faulty.scene.left().empty());
    }
    faulty.expectThatTheNextOneWorks();
  };
  EXPECT_GT(forEachFault(
                folder, [&] { faulty.prepare(); }, [&] { faulty.compareAndClose(); }, check),
            calls);
}

}  // namespace
}  // namespace tolva
