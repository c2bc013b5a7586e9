// SPDX-License-Identifier: Apache-2.0
#include "platform/ChildExchange.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>

#include "platform/TaskCancellation.hpp"
#include "platform/Uptime.hpp"
#include "support/Descriptors.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

/// Asks a shell that runs `script`. The shell leaves its number in "id" of the folder first.
class ChildExchangeTest : public testing::Test {
 protected:
  ChildExchange shell(std::string const& script, std::chrono::milliseconds time = 60s,
                      std::size_t most = 1 << 20) const {
    return {.program = "/bin/sh",
            .arguments = {"-c", "echo $$ >'" + (folder_ / "id").string() + "'; " + script},
            .time = time,
            .mostAnswer = most};
  }

  std::optional<std::string> answer(ChildExchange const& exchange, Bytes const& request = {}) const {
    auto const bytes = exchange.ask(request, noTask);
    expectNobodyLeft();
    return bytes ? std::optional(std::string(bytes->begin(), bytes->end())) : std::nullopt;
  }

  /// A process that has ended but was not reaped could still be signalled.
  void expectNobodyLeft() const {
    pid_t const id = std::stoi(folder_.read("id"));
    EXPECT_EQ(::kill(id, 0), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(openDescriptors(), descriptors_);
  }

  TemporaryFolder folder_;
  long const descriptors_ = openDescriptors();
};

TEST_F(ChildExchangeTest, BringsTheRequestOverAndTheAnswerBack) {
  Bytes large(8 << 20);
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::uint8_t>(i * 2654435761u >> 13);
  for (std::size_t const size :
       {std::size_t{0}, std::size_t{1}, std::size_t{65'536}, std::size_t{65'537}, large.size()}) {
    SCOPED_TRACE(size);
    Bytes const request(large.begin(), large.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(shell("exec cat", 60s, large.size()).ask(request, noTask), request);
    expectNobodyLeft();
  }
}

TEST_F(ChildExchangeTest, TakesAnAnswerOfTheMostBytesAndNotOfOneMore) {
  EXPECT_EQ(answer(shell("printf 12345", 60s, 5)), "12345");
  EXPECT_EQ(answer(shell("printf 123456", 60s, 5)), std::nullopt);
  EXPECT_EQ(answer(shell("exec cat /dev/zero", 60s, 1 << 20)), std::nullopt) << "without an end";
  EXPECT_EQ(answer(shell("exec cat", 60s, 99'999), Bytes(100'000)), std::nullopt);
}

TEST_F(ChildExchangeTest, TakesTheAnswerOfAProgramThatEndsWellAndNoOther) {
  EXPECT_EQ(answer(shell("printf well")), "well");
  EXPECT_EQ(answer(shell("printf ill; exit 1")), std::nullopt);
  EXPECT_EQ(answer(shell("printf ill; kill -SEGV $$")), std::nullopt);
  EXPECT_EQ(answer(shell("printf ill; kill -STOP $$", 200ms)), std::nullopt);
}

TEST_F(ChildExchangeTest, EndsAProgramThatTakesTooLong) {
  for (char const* script : {"exec sleep 60", "exec >&-; exec sleep 60", "exec <&-; exec sleep 60",
                             "trap '' TERM INT HUP; printf x; while :; do :; done"}) {
    SCOPED_TRACE(script);
    auto const begun = uptime();
    EXPECT_EQ(answer(shell(script, 300ms), Bytes(1 << 20)), std::nullopt);
    EXPECT_GE(uptime() - begun, 300ms);
    EXPECT_LT(uptime() - begun, 30s);
  }
}

TEST_F(ChildExchangeTest, DoesNotWaitForAProcessThatTheProgramLeftBehind) {
  auto const begun = uptime();
  EXPECT_EQ(answer(shell("sleep 20 & printf early")), "early");
  EXPECT_LT(uptime() - begun, 15s);
}

TEST_F(ChildExchangeTest, LivesWithAProgramThatDoesNotReadItsRequest) {
  struct sigaction before {};
  struct sigaction const fatal{};  // SIG_DFL: the signal of a broken pipe would end this test
  ASSERT_EQ(::sigaction(SIGPIPE, &fatal, &before), 0);
  EXPECT_EQ(answer(shell("exec <&-; sleep 0.1; printf unread"), Bytes(1 << 20)), "unread");
  EXPECT_EQ(answer(shell("printf unread"), Bytes(1 << 20)), "unread");
  sigset_t pending;
  ASSERT_EQ(::sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  ::sigaction(SIGPIPE, &before, nullptr);
}

TEST_F(ChildExchangeTest, LeavesABrokenPipeOfTheHostPending) {
  sigset_t broken;
  sigset_t before;
  sigemptyset(&broken);
  sigaddset(&broken, SIGPIPE);
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &broken, &before), 0);
  ASSERT_EQ(::raise(SIGPIPE), 0);
  EXPECT_EQ(answer(shell("printf unread"), Bytes(1 << 20)), "unread");
  timespec const now{};
  EXPECT_EQ(::sigtimedwait(&broken, nullptr, &now), SIGPIPE);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(ChildExchangeTest, EndsWithTheTask) {
  std::stop_source source;
  source.request_stop();
  EXPECT_THROW(shell("exec sleep 60").ask({}, source.get_token()), TaskCancelled);
  EXPECT_EQ(folder_.read("id"), "(no id)") << "nothing is started for a task that has been cancelled";

  std::stop_source later;
  std::jthread const canceller([&] {
    while (folder_.read("id").find('\n') == std::string::npos) std::this_thread::sleep_for(1ms);
    later.request_stop();
  });
  auto const begun = uptime();
  EXPECT_THROW(shell("exec sleep 60").ask(Bytes(1 << 20), later.get_token()), TaskCancelled);
  EXPECT_LT(uptime() - begun, 30s);
  expectNobodyLeft();
}

TEST_F(ChildExchangeTest, SaysWhyAProgramCannotBeStarted) {
  auto const plain = folder_.write("plain", "no program");
  struct {
    std::filesystem::path program;
    int reason;
  } const cases[] = {{folder_ / "absent", ENOENT}, {plain, EACCES}, {folder_.path(), EACCES}};
  for (auto const& one : cases) {
    SCOPED_TRACE(one.program);
    try {
      ChildExchange{.program = one.program, .time = 1s, .mostAnswer = 1}.ask({}, noTask);
      ADD_FAILURE() << "started";
    } catch (std::system_error const& failure) {
      EXPECT_EQ(failure.code().value(), one.reason);
    }
    EXPECT_EQ(openDescriptors(), descriptors_);
  }
}

/// What came of an exchange, where it is no matter why it failed.
std::optional<Bytes> anyAnswer(ChildExchange const& exchange, Bytes const& request) {
  try {
    return exchange.ask(request, noTask);
  } catch (std::system_error const&) {
    return {};
  }
}

TEST_F(ChildExchangeTest, LeavesNoProcessWhereDescriptorsRunOut) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  ChildExchange const cat{.program = "/bin/cat", .time = 60s, .mostAnswer = 100};
  bool answered = false;
  int failures = 0;
  for (rlim_t most = 3; !answered && most < 100; ++most) {
    SCOPED_TRACE(most);
    rlimit const few{most, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    answered = anyAnswer(cat, bytesOf("heard")) == bytesOf("heard");
    failures += answered ? 0 : 1;
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_TRUE(answered);
  EXPECT_GE(failures, 6) << "the event, two pipes and the handle: each was once the one too many";
  EXPECT_EQ(openDescriptors(), descriptors_);
}

TEST_F(ChildExchangeTest, HasNoAnswerInAHostThatReapsEveryChild) {
  ChildExchange const quick{.program = "/bin/true", .time = 60s, .mostAnswer = 100};
  ChildExchange const slow{.program = "/bin/sleep", .arguments = {"60"}, .time = 50ms, .mostAnswer = 100};
  auto const before = ::signal(SIGCHLD, SIG_IGN);
  for (int time = 0; time < 50; ++time) EXPECT_EQ(anyAnswer(quick, {}), std::nullopt);
  EXPECT_EQ(anyAnswer(slow, {}), std::nullopt);
  ::signal(SIGCHLD, before);

  std::jthread const reaping([](std::stop_token stop) {
    while (!stop.stop_requested()) ::waitpid(-1, nullptr, WNOHANG);
  });
  for (int time = 0; time < 50; ++time) anyAnswer(quick, {});  // either may be the first to reap it
  EXPECT_EQ(anyAnswer(slow, {}), std::nullopt);
  EXPECT_EQ(openDescriptors(), descriptors_);
}

TEST_F(ChildExchangeTest, GivesTheProgramNothingOfTheHost) {
  ::setenv("TOLVA_TEST_SECRET", "told", 1);
  int const leaked = ::open("/etc/passwd", O_RDONLY);  // without O_CLOEXEC
  sigset_t usr1;
  sigset_t before;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &usr1, &before);
  auto const ignoring = ::signal(SIGHUP, SIG_IGN);
  // Read by a program and not the shell, which has descriptors and signals of its own.
  ChildExchange const look{.program = "/bin/grep",
                           .arguments = {"-E", "^Sig(Blk|Ign)", "/proc/self/status"},
                           .time = 60s,
                           .mostAnswer = 4096};
  auto const bytes = look.ask({}, noTask);
  ::signal(SIGHUP, ignoring);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ASSERT_TRUE(bytes);
  std::string const signals(bytes->begin(), bytes->end());
  EXPECT_EQ(signals.substr(0, 25), "SigBlk:\t0000000000000000\n");
  // libc keeps the signals 32 and 33 to itself.
  EXPECT_EQ(std::stoull(signals.substr(33), nullptr, 16) & 0x7fffffff, 0u) << signals;

  auto const listed =
      ChildExchange{.program = "/bin/ls", .arguments = {"-1", "/proc/self/fd"}, .time = 60s, .mostAnswer = 99}.ask(
          {}, noTask);
  ASSERT_TRUE(listed);
  EXPECT_EQ(std::string(listed->begin(), listed->end()), "0\n1\n2\n3\n") << "3 is the folder that ls reads";
  ::close(leaked);
  auto const variables = ChildExchange{.program = "/usr/bin/env", .time = 60s, .mostAnswer = 4096}.ask({}, noTask);
  EXPECT_EQ(variables, Bytes());
  ::unsetenv("TOLVA_TEST_SECRET");
}

TEST_F(ChildExchangeTest, WorksInAHostWithoutStandardDescriptors) {
  // In a child, whose own descriptors may go.
  pid_t const host = ::fork();
  if (host == 0) {
    for (int standard = 0; standard <= 2; ++standard) ::close(standard);
    auto const said =
        ChildExchange{.program = "/bin/cat", .time = 60s, .mostAnswer = 100}.ask(bytesOf("heard"), noTask);
    ::_exit(said == bytesOf("heard") ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(host, &status, 0), host);
  EXPECT_EQ(status, 0);
}

TEST_F(ChildExchangeTest, ServesManyThreadsAtOnce) {
  std::vector<std::jthread> threads;
  std::atomic<int> right = 0;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      Bytes const request(100'000, static_cast<std::uint8_t>(thread));
      for (int time = 0; time < 10; ++time) {
        right +=
            ChildExchange{.program = "/bin/cat", .time = 60s, .mostAnswer = 100'000}.ask(request, noTask) == request;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(right, 40);
  EXPECT_EQ(openDescriptors(), descriptors_);
}

}  // namespace
}  // namespace tolva
