// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "support/Command.hpp"
#include "support/HostileDatabases.hpp"
#include "support/SQLitePeer.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

// The command on files that were made to keep it busy, as a process of its own: its time and memory are what a person
// would see.

namespace tolva {
namespace {

using namespace std::chrono_literals;

CommandResult quicklook(std::filesystem::path const& file) {
  return runCommand({TOLVA_QUICKLOOK, file.string()}, {.environment = {"TZ=UTC", "LC_ALL=C"}});
}

std::string complaint(std::filesystem::path const& file, std::string const& text) {
  return "tolva-quicklook: " + file.string() + ": " + text + "\n";
}

/// The budgets of a preview, two seconds and 256 MiB, and what the process takes besides.
void expectWithinBudgets(std::string const& file, CommandResult const& result) {
  EXPECT_LE(result.seconds, sanitized ? 60s : 10s) << "on a machine as busy as may be";
  testing::Test::RecordProperty(file + "Milliseconds", static_cast<int>(result.seconds / 1ms));
  testing::Test::RecordProperty(file + "ProcessorMilliseconds", static_cast<int>(result.processor / 1ms));
  testing::Test::RecordProperty(file + "PeakMiB", static_cast<int>(result.peakMemory / 1024));
  if (sanitized) return;
  EXPECT_LE(result.processor, 2.3s);
  EXPECT_LE(result.peakMemory, 320 * 1024);
}

TEST(HostileFile, EndsAPreviewWithinItsBudgets) {
  struct HostileCase {
    char const* says;
    char const* file;
    void (*write)(std::filesystem::path const&);
    char const* error;
  };
  HostileCase const files[] = {
      {"a view with a list of 20 million items", "longList", writeLongList, "out of memory"},
      {"a token of 150 MB", "longToken", writeLongToken, "out of memory"},
      {"a schema without end", "endlessSchema", writeEndlessSchema, "Cancelled"},
      {"a schema of 300 texts of 100 MB on the same pages", "sharedSQL", writeSharedSQL, "Cancelled"},
  };
  for (HostileCase const& each : files) {
    SCOPED_TRACE(each.says);
    TemporaryFolder const folder;
    each.write(folder / each.file);
    CommandResult const result = quicklook(folder / each.file);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    // On a busy machine, or under a sanitizer, time can run out before memory does.
    bool const timeRanOut = result.errors == complaint(folder / each.file, "Cancelled");
    EXPECT_TRUE(timeRanOut || result.errors == complaint(folder / each.file, each.error)) << result.errors;
    expectWithinBudgets(each.file, result);
  }
}

TEST(HostileFile, CountsViewsThatMultiplyWithoutResolvingThem) {
  TemporaryFolder const folder;
  writeMultiplyingViews(folder / "t.db");
  CommandResult const result = quicklook(folder / "t.db");
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_TRUE(result.output.starts_with("t.db\nSQLite Database\n\n3001 tables · 18 views · 0 indexes\n"));
  expectWithinBudgets("multiplyingViews", result);
}

TEST(HostileFile, TellsOfAnExclusiveLockAfterTheBusyTimeout) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE a(b)");
  SQLitePeer peer(folder / "t.db");
  ASSERT_EQ(peer.exec("BEGIN EXCLUSIVE"), "ok");
  CommandResult const locked = quicklook(folder / "t.db");
  EXPECT_EQ(locked.status, 1);
  EXPECT_EQ(locked.errors, complaint(folder / "t.db",
                                     "Another connection is holding a database lock. Wait for its transaction to "
                                     "finish, then try again. database is locked"));
  EXPECT_GE(locked.seconds, 1.1s) << "SQLite counts the pauses of its waiting, not the clock";
  expectWithinBudgets("locked", locked);
  ASSERT_EQ(peer.exec("COMMIT"), "ok");
  EXPECT_EQ(quicklook(folder / "t.db").status, 0);
}

}  // namespace
}  // namespace tolva
