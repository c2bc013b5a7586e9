// SPDX-License-Identifier: Apache-2.0
#include "support/Unprivileged.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <stdexcept>

#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

TEST(Unprivileged, ReturnsTheTextOfItsBody) {
  EXPECT_EQ(asUnprivileged([] { return std::string(100'000, 'x'); }), std::string(100'000, 'x'));
  EXPECT_EQ(asUnprivileged([] { return std::string(); }), "");
}

TEST(Unprivileged, IsNeverRootAndLeavesTheParentAsItWas) {
  uid_t const before = ::geteuid();
  std::string const expected = before == 0 ? "65534 65534 0" : std::to_string(before);
  EXPECT_EQ(asUnprivileged([&] {
              std::string const groups = std::to_string(::getegid()) + " " + std::to_string(::getgroups(0, nullptr));
              return std::to_string(::geteuid()) + (before == 0 ? " " + groups : "");
            }),
            expected);
  EXPECT_EQ(::geteuid(), before);
}

TEST(Unprivileged, CannotReadWhatItsPermissionsForbid) {
  TemporaryFolder folder;
  folder.openToEverybody();
  folder.write("secret", "s");
  std::filesystem::permissions(folder / "secret", std::filesystem::perms::none);
  folder.write("open", "o");
  EXPECT_EQ(asUnprivileged([&] { return folder.read("secret") + " " + folder.read("open"); }), "(no secret) o");
}

TEST(Unprivileged, TellsHowABodyEndedThatDoesNotReturn) {
  EXPECT_EQ(asUnprivileged([]() -> std::string { throw std::runtime_error("no"); }), "(threw: no)");
  EXPECT_EQ(asUnprivileged([]() -> std::string { throw 1; }), "(threw)");
  EXPECT_EQ(asUnprivileged([]() -> std::string { ::_exit(3); }), "(left with 3)");
  EXPECT_EQ(asUnprivileged([]() -> std::string {
              ::kill(::getpid(), SIGKILL);
              return "alive";
            }),
            "(killed by signal 9)");
}

}  // namespace
}  // namespace tolva
