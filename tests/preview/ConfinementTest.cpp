// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/Confinement.hpp"

#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "platform/ChildProcess.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/Unprivileged.hpp"

namespace tolva {
namespace {

/// What a confined program says of one deed: "done", "refused EACCES", "(killed by signal 31)".
std::string outcomeOf(std::string const& deed, std::string const& files = "none",
                      std::filesystem::path const& program = TOLVA_CONFINED) {
  ChildProcess child(program, {files, deed});
  child.closeInput();
  std::string said;
  std::array<std::uint8_t, 256> piece;
  for (;;) {
    pollfd waited{child.output(), POLLIN, 0};
    if (::poll(&waited, 1, 60'000) == 0) return said + "(no end)";
    auto const got = child.read(piece);
    if (!got) break;
    said.append(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(*got));
  }
  int const status = child.wait().value_or(-1000);
  if (status < 0) return said + "(killed by signal " + std::to_string(-status) + ")";
  return status == 0 ? said : said + "(left with " + std::to_string(status) + ")";
}

bool kernelHasLandlock() {
  return ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) > 0;
}

struct DeedCase {
  char const* deed;
  char const* outcome;
};

constexpr char killed[] = "(killed by signal 31)";  // SIGSYS

constexpr DeedCase deeds[] = {
    {"work", "done"},
    {"map-1-gib", "refused ENOMEM"},
    {"open-passwd", "refused EACCES"},
    {"open-fonts", "refused EACCES"},
    {"create-file", "refused EACCES"},
    {"openat2", killed},
    {"chmod", "refused EACCES"},
    {"chmod-at", "refused EACCES"},
    {"link", "refused EACCES"},
    {"link-at", "refused EACCES"},
    {"make-folder", "refused EACCES"},
    {"make-folder-at", "refused EACCES"},
    {"rename", "refused EACCES"},
    {"rename-at", "refused EACCES"},
    {"rename-at-2", "refused EACCES"},
    {"symlink", "refused EACCES"},
    {"symlink-at", "refused EACCES"},
    {"unlink", "refused EACCES"},
    {"unlink-at", "refused EACCES"},
    {"poll", "done"},
    {"poll-with-signals", "done"},
    {"read-leaked-descriptor", "refused EBADF"},
    {"socket", "refused EACCES"},
    {"socketpair", killed},
    {"fork", killed},
    {"vfork", killed},
    {"clone3", "refused ENOSYS"},
    {"exec", killed},
    {"ptrace", killed},
    {"read-parents-memory", killed},
    {"kill", killed},
    {"signal-another", killed},
    {"signal-by-descriptor", killed},
    {"map-executable", "refused EACCES"},
    {"make-executable", "refused EACCES"},
    {"memfd", killed},
    {"io-uring", killed},
    {"unshare", killed},
    {"mount", killed},
    {"chroot", killed},
    {"become-root", killed},
    {"bpf", killed},
    {"raise-limit", "refused EACCES"},
    {"ioctl", "refused EACCES"},
    {"thread", "done"},
    {"time-out", "(killed by signal 14)"},
#if defined(__x86_64__)
    {"other-abi", killed},
#endif
};

TEST(Confinement, LeavesADecoderItsWorkAndNothingElse) {
  for (DeedCase const& deed : deeds) {
    SCOPED_TRACE(deed.deed);
    EXPECT_EQ(outcomeOf(deed.deed), deed.outcome);
  }
}

TEST(Confinement, HoldsForAnyUser) {
  TemporaryFolder folder;
  std::filesystem::copy_file(TOLVA_CONFINED, folder / "confined");
  folder.openToEverybody();
  std::string expected;
  for (DeedCase const& deed : deeds) expected += deed.outcome;
  EXPECT_EQ(asUnprivileged([&] {
              std::string all;
              for (DeedCase const& deed : deeds) all += outcomeOf(deed.deed, "none", folder / "confined");
              return all;
            }),
            expected);
}

TEST(Confinement, HoldsInAHostWithLowerLimitsOfItsOwn) {
  TemporaryFolder folder;
  std::filesystem::copy_file(TOLVA_CONFINED, folder / "confined");
  auto const limited = folder.write(
      "limited", "#!/bin/sh\nulimit -v 600000\nulimit -t 2\nexec '" + (folder / "confined").string() + "' \"$@\"\n");
  ASSERT_EQ(::chmod(limited.c_str(), 0755), 0);
  folder.openToEverybody();
  EXPECT_EQ(asUnprivileged([&] { return outcomeOf("work", "none", limited); }), "done");
}

TEST(Confinement, LetsTheFontsBeReadWhereTheKernelCanTellThemFromOtherFiles) {
  EXPECT_EQ(outcomeOf("open-fonts", "fonts"), kernelHasLandlock() ? "done" : "refused EACCES");
  EXPECT_EQ(outcomeOf("open-passwd", "fonts"), "refused EACCES");
  EXPECT_EQ(outcomeOf("open-fonts-writing", "fonts"), "refused EACCES");
  EXPECT_EQ(outcomeOf("create-file", "fonts"), "refused EACCES");
  EXPECT_EQ(outcomeOf("signal-by-descriptor", "fonts"), killed);
}

TEST(Confinement, IsRefusedWhereASecondThreadWouldEscapeIt) {
  EXPECT_EQ(outcomeOf("nothing", "late"), "(left with 70)");
}

TEST(Confinement, LeavesNoThreadsToADecoderThatNeedsNone) {
  EXPECT_EQ(outcomeOf("thread", "fonts"), "refused EAGAIN");
  EXPECT_EQ(outcomeOf("fork", "fonts"), killed);
}

/// What the system tells of a process: "CapEff" to "0000000000000000". Empty once there is none.
std::map<std::string, std::string> statusOf(pid_t id) {
  std::map<std::string, std::string> status;
  std::ifstream lines("/proc/" + std::to_string(id) + "/status");
  for (std::string line; std::getline(lines, line);) {
    auto const colon = line.find(":\t");
    if (colon != line.npos) status[line.substr(0, colon)] = line.substr(colon + 2);
  }
  return status;
}

/// Waits until the process stands behind its filter, the last part of the confinement.
std::map<std::string, std::string> statusOnceConfined(pid_t id) {
  for (int time = 0; time < 20'000; ++time) {
    auto status = statusOf(id);
    if (status["Seccomp"] == "2") return status;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return {};
}

/// Of root as well.
TEST(Confinement, TakesEveryCapabilityForGood) {
  ChildProcess const child(TOLVA_CONFINED, {"none", "sleep"});
  auto status = statusOnceConfined(child.id());
  for (char const* const set : {"CapInh", "CapPrm", "CapEff", "CapAmb"}) {
    EXPECT_EQ(status[set], "0000000000000000") << set;
  }
  EXPECT_EQ(status["NoNewPrivs"], "1") << "a program with capabilities of its own would bring them back";
}

/// A host that dies has no destructor left to end its helpers.
TEST(Confinement, EndsWithItsParent) {
  ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0) << "or nobody would tell how an orphan ended";
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  pid_t const host = ::fork();
  if (host == 0) {
    ChildProcess const helper(TOLVA_CONFINED, {"none", "sleep"});
    pid_t const id = helper.id();
    bool const confined = !statusOnceConfined(id).empty();
    if (!confined || ::write(ends[1], &id, sizeof id) != sizeof id) ::_exit(1);
    for (;;) ::pause();
  }
  pid_t helper = -1;
  ::close(ends[1]);
  EXPECT_EQ(::read(ends[0], &helper, sizeof helper), ssize_t{sizeof helper});
  ::close(ends[0]);
  ASSERT_EQ(::kill(host, SIGKILL), 0);
  ASSERT_EQ(::waitpid(host, nullptr, 0), host);
  ASSERT_GT(helper, 0);
  int status = 0;
  ASSERT_EQ(::waitpid(helper, &status, 0), helper);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL) << "and not the alarm after 30 seconds";
}

TEST(Confinement, EndsWhatComputesForThreeSeconds) { EXPECT_EQ(outcomeOf("spin"), "(killed by signal 9)"); }

}  // namespace
}  // namespace tolva
