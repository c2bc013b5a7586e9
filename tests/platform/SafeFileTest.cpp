// SPDX-License-Identifier: Apache-2.0
#include "platform/SafeFile.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <iterator>

#include "platform/Descriptor.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

std::string text(Bytes const& bytes) { return {bytes.begin(), bytes.end()}; }

std::ptrdiff_t openDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

/// One of everything that a person can point at, and a link to each.
struct Kinds {
  TemporaryFolder folder;
  Descriptor socket{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  Descriptor place{::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};

  Kinds() {
    folder.write("file", "content");
    std::filesystem::create_directory(folder / "folder");
    EXPECT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::strncpy(address.sun_path, (folder / "socket").c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    std::filesystem::create_symlink("/dev/null", folder / "device");
    for (std::string const name : {"file", "folder", "pipe", "socket", "nothing"})
      std::filesystem::create_symlink(name, folder / (name + "-link"));
  }
};

TEST(SafeFile, OpensRegularFilesAndRefusesEverythingElseAtOnce) {
  struct {
    char const* name;
    char const* following;
    char const* refusingLinks;
  } const cases[] = {
      {"file", "(nothing failed)", "(nothing failed)"}, {"file-link", "(nothing failed)", "ELOOP file-link"},
      {"folder", "EINVAL folder", "EINVAL folder"},     {"folder-link", "EINVAL folder-link", "ELOOP folder-link"},
      {"pipe", "EINVAL pipe", "EINVAL pipe"},           {"pipe-link", "EINVAL pipe-link", "ELOOP pipe-link"},
      {"socket", "EINVAL socket", "EINVAL socket"},     {"socket-link", "EINVAL socket-link", "ELOOP socket-link"},
      {"device", "EINVAL device", "ELOOP device"},  // a link to a device: making a device takes root
      {"nothing", "ENOENT nothing", "ENOENT nothing"},  {"nothing-link", "ENOENT nothing-link", "ELOOP nothing-link"},
      {"file/below", "ENOTDIR below", "ENOTDIR below"},
  };
  Kinds const kinds;
  auto const before = openDescriptors();
  for (auto const& kind : cases) {
    SCOPED_TRACE(kind.name);
    auto const path = kinds.folder / kind.name;
    int const place = kinds.place.get();
    EXPECT_EQ(systemFailureOf([&] { SafeFile file(path); }), kind.following);
    EXPECT_EQ(systemFailureOf([&] { SafeFile file(path, Links::refuse); }), kind.refusingLinks);
    EXPECT_EQ(systemFailureOf([&] { SafeFile file(place, kind.name, Links::follow); }), kind.following);
    EXPECT_EQ(systemFailureOf([&] { SafeFile file(place, kind.name); }), kind.refusingLinks);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(SafeFile, ReportsAFileThatMayNotBeRead) {
  TemporaryFolder folder;
  folder.openToEverybody();
  auto const file = folder.write("secret", "s");
  std::filesystem::permissions(file, std::filesystem::perms::none);
  EXPECT_EQ(asUnprivileged([&] { return systemFailureOf([&] { SafeFile opened(file); }); }), "EACCES secret");
}

TEST(SafeFile, ReadsOnFromWhereItWas) {
  TemporaryFolder const folder;
  SafeFile file(folder.write("a", "0123456789"));
  std::array<std::uint8_t, 4> four{};
  auto const next = [&](std::size_t got) { return std::string(four.begin(), four.begin() + static_cast<int>(got)); };
  EXPECT_EQ(next(file.read(four)), "0123");
  EXPECT_EQ(next(file.readAt(four, 8)), "89");
  EXPECT_EQ(next(file.readAt(four, 1)), "1234");
  EXPECT_EQ(next(file.readAt(four, 11)), "");
  EXPECT_EQ(next(file.read(four)), "4567");
  EXPECT_EQ(next(file.read(four)), "89");
  EXPECT_EQ(next(file.read(four)), "");
}

TEST(SafeFile, ReadsTheRestUpToALimit) {
  std::string const large(200'001, 'x');
  struct {
    std::string content;
    std::size_t limit;
    std::string read;
  } const cases[] = {
      {"", 0, ""},
      {"", 10, ""},
      {"0123456789", 0, ""},
      {"0123456789", 9, "012345678"},
      {"0123456789", 10, "0123456789"},
      {"0123456789", 11, "0123456789"},
      {std::string(65'536, 'y'), 100'000, std::string(65'536, 'y')},
      {large, 200'000, large.substr(1)},
      {large, 300'000, large},
      {large, static_cast<std::size_t>(-1), large},
  };
  TemporaryFolder const folder;
  for (auto const& each : cases) {
    SafeFile file(folder.write("a", each.content));
    EXPECT_EQ(text(file.readUpTo(each.limit)), each.read) << each.content.size() << " up to " << each.limit;
  }
  SafeFile file(folder.write("a", "0123456789"));
  EXPECT_EQ(text(file.readUpTo(4)), "0123");
  EXPECT_EQ(text(file.readUpTo(100)), "456789");
}

TEST(SafeFile, TellsWhatItOpenedAndWhatBecameOfIt) {
  TemporaryFolder const folder;
  auto const path = folder.write("a", "0123456789");
  SafeFile file(path);
  EXPECT_EQ(file.node(), fileNode(path));
  EXPECT_EQ(file.size(), 10U);
  EXPECT_LE(std::chrono::abs(std::chrono::system_clock::now() - file.modified()), std::chrono::seconds(60));
  FileStatus const before = file.status();
  EXPECT_EQ(before.size, 10U);
  EXPECT_EQ(before.modified, file.modified());
  EXPECT_EQ(before.links, 1U);
  EXPECT_EQ(before.owner, ::geteuid());
  EXPECT_EQ(file.status(), before);

  ::usleep(20'000);  // a tick of the clock that files are stamped with
  folder.write("a", "9876543210");
  EXPECT_NE(file.status(), before);
  EXPECT_GT(file.status().modified, before.modified);
  EXPECT_EQ(file.modified(), before.modified);
  std::filesystem::create_hard_link(path, folder / "b");
  EXPECT_EQ(file.status().links, 2U);
}

TEST(SafeFile, ReadsPastTheSizeItHadWhenItWasOpened) {
  TemporaryFolder const folder;
  SafeFile file(folder.write("a", "short"));
  folder.write("a", "longer by now");
  EXPECT_EQ(text(file.readUpTo(100)), "longer by now");
}

TEST(SafeFile, MovesWithItsDescriptor) {
  TemporaryFolder const folder;
  folder.write("a", "aa");
  folder.write("b", "bb");
  auto const before = openDescriptors();
  {
    SafeFile first(folder / "a");
    SafeFile second(std::move(first));
    EXPECT_EQ(text(second.readUpTo(9)), "aa");
    second = SafeFile(folder / "b");
    EXPECT_EQ(second.node(), fileNode(folder / "b"));
    EXPECT_EQ(text(second.readUpTo(9)), "bb");
    EXPECT_EQ(openDescriptors(), before + 1);
  }
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace tolva
