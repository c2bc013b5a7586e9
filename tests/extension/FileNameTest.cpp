// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/Descriptor.hpp"
#include "support/Command.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

// The command on names and kinds of file that other programs stumble over: what a name says is what is read.

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr char const* notOpened = "unable to open database file";
constexpr char const* notADatabase =
    "SQLite cannot recognize this file. It may not be a SQLite database, may be encrypted, or may have a damaged "
    "header. Encrypted databases are not supported.";
constexpr char const* damaged =
    "SQLite detected damage in this database. Restore a known-good backup or recover a separate copy. Tolva does not "
    "automatically repair databases.";

CommandResult quicklook(std::filesystem::path const& folder, std::string const& name) {
  CommandResult result = runCommand({TOLVA_QUICKLOOK, name}, {.folder = folder, .environment = {"TZ=UTC", "LC_ALL=C"}});
  EXPECT_LT(result.seconds, 10s) << "it waited for something";
  return result;
}

/// A database whose one table tells which file it is, with a date of 2026-11-15.
void makeDatabase(std::filesystem::path const& path, std::string const& table) {
  std::filesystem::create_directories(path.parent_path());
  TemporaryDatabase const database("CREATE TABLE \"" + table + "\"(a)");
  std::filesystem::copy_file(database.path(), path);
  std::filesystem::last_write_time(
      path, std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(1'794'778'860))));
}

std::string summary(std::string const& title, std::string const& counts = "1 tables · 0 views · 0 indexes\n8 KB",
                    std::string const& tables = "right") {
  return title + "\nSQLite Database\n\n" + counts + "\n\nTABLES\n" + tables + "\n\nModified 11/15/2026, 9:41 PM\n";
}

std::vector<std::string> everythingIn(std::filesystem::path const& folder) {
  std::vector<std::string> all;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(folder)) all.push_back(entry.path());
  std::sort(all.begin(), all.end());
  return all;
}

TEST(QuickLookFileName, MeansTheFileOfThatNameAndNoOther) {
  struct NameCase {
    char const* says;
    std::string name;
    std::vector<std::string> others{};  // files that it could be taken for
    std::string title{};                // the name itself, if empty
  };
  NameCase const names[] = {
      {"a line end", "line\nend.db", {"line", "end.db"}},
      {"a question mark", "a?b.db", {"a"}},
      {"a question mark with a parameter of a URI", "a?mode=memory", {"a"}},
      {"a number sign", "a#b.db", {"a"}},
      {"an escape of a URI", "%41.db", {"A.db"}},
      {"a URI", "file:a?mode=memory", {"a", "file:a"}},
      {"a URI of an absolute path", "file:///a", {"a"}, "a"},
      {"the name of a database in memory", ":memory:"},
      {"single quotes", "'a'.db", {"a.db"}},
      {"double quotes", "\"a\".db", {"a.db"}},
      {"a backslash", "a\\b.db", {"a/b.db", "b.db"}},
      {"the words of a shell", "$(echo a);*~.db", {"a.db"}},
      {"a blank", " ", {""}},
      {"blanks around it", "  a .db ", {"a .db", "a.db"}},
      {"a leading dash", "-t.db", {"t.db"}},
      {"two leading dashes", "--version ", {"version"}},
      {"255 bytes", std::string(252, 'n') + ".db"},
      {"invalid UTF-8", "\xff\xc3.db", {"\xff.db"}, "\uFFFD\uFFFD.db"},
      {"characters beyond ASCII", "Ünï 📂.db", {"Uni.db"}},
      {"control characters", "\x1b[31m\t\x7f.db", {"[31m.db"}},
      {"a folder and back", "sub/../t.db", {"sub/t.db"}, "t.db"},
      {"through a link to a folder and back", "link/../t.db", {"t.db", "sub/t.db"}, "t.db"},
      {"this folder", "./t.db", {}, "t.db"},
      {"slashes", "sub///t.db", {"t.db"}, "t.db"},
  };
  for (NameCase const& each : names) {
    SCOPED_TRACE(each.says);
    TemporaryFolder const folder;
    for (std::string const& other : each.others)
      if (!other.empty()) makeDatabase(folder / other, "wrong");
    if (each.name.starts_with("sub/")) std::filesystem::create_directories(folder / "sub");
    if (each.name.starts_with("link/")) {
      std::filesystem::create_directories(folder / "far/away");
      std::filesystem::create_directory_symlink(folder / "far/away", folder / "link");
    }
    makeDatabase(folder / each.name, "right");
    auto const before = everythingIn(folder.path());
    std::string const title = each.title.empty() ? each.name : each.title;
    for (std::string const& name : {each.name, (folder / each.name).string()}) {
      CommandResult const result = quicklook(folder.path(), name);
      EXPECT_EQ(result.output, summary(title));
      EXPECT_EQ(result.errors, "");
      EXPECT_EQ(result.status, 0);
    }
    EXPECT_EQ(everythingIn(folder.path()), before);
  }
}

TEST(QuickLookFileName, IsShownAsItStandsInAnError) {
  TemporaryFolder const folder;
  for (char const* const name : {"none", "-none", "file:none?mode=memory", ":memory:", "a\nb", "\xff", "%41", ""}) {
    SCOPED_TRACE(name);
    CommandResult const result = quicklook(folder.path(), name);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "tolva-quicklook: " + std::string(name) + ": " + notOpened + "\n");
  }
  EXPECT_EQ(folder.names(), std::vector<std::string>()) << "nothing was made";
}

void makeSocket(std::filesystem::path const& path) {
  Descriptor const descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(descriptor.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
}

TEST(QuickLookFileName, OfWhatIsNoDatabaseIsRefused) {
  TemporaryFolder const folder;
  makeDatabase(folder / "t.db", "t");
  struct KindCase {
    char const* says;
    std::string name;
    std::string error;
    std::function<void(std::filesystem::path const&)> make = [](auto const&) {};
  };
  auto const withBytes = [&](std::string const& bytes) {
    return [&folder, bytes](std::filesystem::path const& path) { folder.write(path.filename(), bytes); };
  };
  auto const linkTo = [](char const* target) {
    return [target](std::filesystem::path const& path) { std::filesystem::create_symlink(target, path); };
  };
  std::string const magic = std::string("SQLite format 3") + '\0';
  std::string const start = folder.read("t.db");
  KindCase const kinds[] = {
      {"no file", "none", notOpened},
      {"a pipe", "pipe", notOpened, [](auto const& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
      {"a socket", "socket", notOpened, makeSocket},
      {"a folder", "folder", notOpened, [](auto const& path) { std::filesystem::create_directory(path); }},
      {"the folder above", "..", notOpened},
      {"this folder", ".", notOpened},
      {"the root", "/", notOpened},
      {"no name", "", notOpened},
      {"endless zeros", "/dev/zero", notOpened},
      {"the empty device", "/dev/null", notOpened},
      {"a link to nothing", "dangling", notOpened, linkTo("none")},
      {"a link to itself", "loop", notOpened, linkTo("loop")},
      {"a link to a device", "zeros", notOpened, linkTo("/dev/zero")},
      {"two bytes", "two", notADatabase, withBytes("SQ")},
      {"15 bytes of the header", "fifteen", notADatabase, withBytes(magic.substr(0, 15))},
      {"16 bytes of the header", "sixteen", notADatabase, withBytes(magic)},
      {"99 bytes of the header", "header", damaged, withBytes(start.substr(0, 99))},
      {"a page of two", "half", damaged, withBytes(start.substr(0, 4096))},
      {"zeros", "zeros.db", notADatabase, withBytes(std::string(8192, '\0'))},
      {"text", "text", notADatabase, withBytes(std::string(600, 'x'))},
      {"a file as a folder", "t.db/", "filesystem error: The file cannot be inspected: Not a directory [t.db/]"},
      {"a folder that is not there, and back", "none/../t.db",
       "filesystem error: The file cannot be inspected: No such file or directory [none/../t.db]"},
  };
  for (KindCase const& each : kinds) {
    SCOPED_TRACE(each.says);
    each.make(folder / each.name);
    CommandResult const result = quicklook(folder.path(), each.name);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "tolva-quicklook: " + each.name + ": " + each.error + "\n");
  }
}

TEST(QuickLookFileName, OfAnEmptyFileIsADatabaseWithoutTables) {
  struct EmptyCase {
    std::string content;
    char const* size;
  };
  EmptyCase const files[] = {{"", "Zero KB"}, {"S", "1 byte"}};  // SQLite takes one byte for none
  for (EmptyCase const& each : files) {
    SCOPED_TRACE(each.size);
    TemporaryFolder const folder;
    makeDatabase(folder / "t.db", "t");
    auto const date = std::filesystem::last_write_time(folder / "t.db");
    folder.write("t.db", each.content);
    std::filesystem::last_write_time(folder / "t.db", date);
    EXPECT_EQ(quicklook(folder.path(), "t.db").output,
              summary("t.db", std::string("0 tables · 0 views · 0 indexes\n") + each.size, ""));
    EXPECT_EQ(folder.read("t.db"), each.content);
  }
}

TEST(QuickLookFileName, IsFollowedThroughALinkButShownAsItself) {
  TemporaryFolder const folder;
  makeDatabase(folder / "far/t.db", "right");
  std::filesystem::create_symlink("far/t.db", folder / "link.db");
  std::filesystem::create_hard_link(folder / "far/t.db", folder / "second.db");
  EXPECT_EQ(quicklook(folder.path(), "link.db").output, summary("link.db"));
  EXPECT_EQ(quicklook(folder.path(), "second.db").output, summary("second.db"));
}

/// A path below `folder` of exactly `size` bytes, through folders with long names.
std::filesystem::path pathOfSize(std::filesystem::path folder, std::size_t size) {
  while (folder.native().size() + 250 < size) folder /= std::string(200, 'd');
  return folder / std::string(size - folder.native().size() - 1, 'f');
}

TEST(QuickLookFileName, IsRefusedWithAPathOfMoreThan504Bytes) {
  struct SizeCase {
    std::size_t size;
    std::string error;
  };
  SizeCase const sizes[] = {{504, ""}, {505, notOpened}, {512, notOpened}, {513, notOpened}, {900, notOpened}};
  for (SizeCase const& each : sizes) {
    SCOPED_TRACE(each.size);
    TemporaryFolder const folder;
    std::filesystem::path const path = pathOfSize(folder.path(), each.size);
    ASSERT_EQ(path.native().size(), each.size);
    makeDatabase(path, "right");
    for (std::string const& name : {path.string(), path.filename().string()}) {
      CommandResult const result = quicklook(path.parent_path(), name);
      EXPECT_EQ(result.status, each.error.empty() ? 0 : 1);
      EXPECT_EQ(result.output, each.error.empty() ? summary(path.filename()) : "");
      EXPECT_EQ(result.errors, each.error.empty() ? "" : "tolva-quicklook: " + name + ": " + each.error + "\n");
    }
  }
}

}  // namespace
}  // namespace tolva
