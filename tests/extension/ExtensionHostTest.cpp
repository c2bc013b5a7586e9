// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "support/Command.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

// The command as a person or a file manager calls it.

namespace tolva {
namespace {

CommandResult quicklook(std::vector<std::string> names, CommandOptions options = {}) {
  names.insert(names.begin(), TOLVA_QUICKLOOK);
  if (options.environment.empty()) options.environment = {"TZ=UTC", "LC_ALL=C"};
  return runCommand(names, options);
}

std::string const begin = "t.db\nSQLite Database\n\n1 tables · 0 views · 0 indexes\n8 KB\n\nTABLES\na\n\nModified ";

TEST(ExtensionHost, PrintsTheSummaryAndOneLineEnd) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE a(b)");
  CommandResult const result = quicklook({(folder / "t.db").string()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_TRUE(result.output.starts_with(begin)) << result.output;
  EXPECT_EQ(result.output.find('\n', begin.size()), result.output.size() - 1);
}

TEST(ExtensionHost, PutsAnEmptyLineBetweenFiles) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE a(b)");
  std::string const one = quicklook({(folder / "t.db").string()}).output;
  std::string const name = (folder / "t.db").string();
  EXPECT_EQ(quicklook({name, name, name}).output, one + "\n" + one + "\n" + one);
}

TEST(ExtensionHost, TellsEachErrorAndPrintsTheRest) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE a(b)");
  folder.write("noise.db", std::string(5000, 'x'));
  std::string const good = (folder / "t.db").string();
  std::string const none = (folder / "none.db").string();
  std::string const noise = (folder / "noise.db").string();
  CommandResult const result = quicklook({none, good, noise});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, quicklook({good}).output);
  EXPECT_EQ(result.errors, "tolva-quicklook: " + none + ": unable to open database file\n" +
                               "tolva-quicklook: " + noise +
                               ": SQLite cannot recognize this file. It may not be a SQLite database, may be "
                               "encrypted, or may have a damaged header. Encrypted databases are not supported.\n");
}

TEST(ExtensionHost, WritesTheDateInTheUsersLocaleAndZone) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE a(b)");
  std::filesystem::last_write_time(folder / "t.db", std::chrono::file_clock::from_sys(
                                                        std::chrono::sys_seconds(std::chrono::seconds(1'794'778'860))));
  std::string const name = (folder / "t.db").string();
  auto const dateIn = [&](std::vector<std::string> environment) {
    std::string const text = quicklook({name}, {.environment = std::move(environment)}).output;
    return text.substr(begin.size());
  };
  EXPECT_EQ(dateIn({"TZ=UTC"}), "11/15/2026, 9:41 PM\n");
  EXPECT_EQ(dateIn({"TZ=Asia/Kathmandu"}), "11/16/2026, 3:26 AM\n");
  EXPECT_EQ(dateIn({"TZ=UTC", "LANG=de_DE.UTF-8"}), "15.11.2026, 21:41\n");
  EXPECT_EQ(dateIn({"TZ=UTC", "LANG=de_DE.UTF-8", "LC_TIME=en_GB.UTF-8"}), "15/11/2026, 21:41\n");
}

TEST(ExtensionHost, AnswersASingleHelpOrVersion) {
  CommandResult const help = quicklook({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.output.starts_with("Usage: tolva-quicklook FILE...\n")) << help.output;
  CommandResult const version = quicklook({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.output, "tolva-quicklook " TOLVA_VERSION "\n");
}

TEST(ExtensionHost, TakesAnyOtherNameForAFile) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "-t.db", "CREATE TABLE a(b)");
  TemporaryDatabase const option(folder, "--help", "CREATE TABLE a(b)");
  EXPECT_EQ(quicklook({"-t.db"}, {.folder = folder.path()}).output.substr(0, 6), "-t.db\n");
  EXPECT_EQ(quicklook({"--help", "-t.db"}, {.folder = folder.path()}).output.substr(0, 7), "--help\n");
}

TEST(ExtensionHost, WantsAFile) {
  CommandResult const result = quicklook({});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "tolva-quicklook: no file is named. Try \"tolva-quicklook --help\".\n");
}

TEST(ExtensionHost, FailsWhenItsOutputCannotBeWritten) {
  TemporaryDatabase const database("CREATE TABLE a(b)");
  CommandResult const result = quicklook({database.path().string()}, {.output = "/dev/full"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "tolva-quicklook: standard output: No space left on device\n");
}

}  // namespace
}  // namespace tolva
