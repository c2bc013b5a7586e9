// SPDX-License-Identifier: Apache-2.0
#include "platform/ChildProcess.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/SystemError.hpp"

extern "C" {
#include <sys/pidfd.h>  // glibc 2.36 gives it no C linkage
}

namespace tolva {
namespace {

/// The same file under a number beyond those that the program gets, for a host that runs without standard descriptors.
Descriptor aboveStandard(Descriptor descriptor) {
  if (descriptor.get() > STDERR_FILENO) return descriptor;
  Descriptor above(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!above) throwSystemError("A descriptor cannot be copied");
  return above;
}

struct Pipe {
  Descriptor reading;
  Descriptor writing;
};

Pipe makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throwSystemError("A pipe cannot be made");
  Pipe raw{Descriptor(ends[0]), Descriptor(ends[1])};
  return {aboveStandard(std::move(raw.reading)), aboveStandard(std::move(raw.writing))};
}

void neverBlock(Descriptor const& end) {
  int const flags = ::fcntl(end.get(), F_GETFL);
  if (flags < 0 || ::fcntl(end.get(), F_SETFL, flags | O_NONBLOCK) != 0) throwSystemError("A pipe cannot be set up");
}

void check(int error) {
  if (error == 0) return;
  errno = error;
  throwSystemError("A process cannot be set up");
}

/// What happens to the descriptors between the fork and the exec.
class FileActions {
 public:
  FileActions(int input, int output) {
    check(::posix_spawn_file_actions_init(&actions_));
    int error = ::posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
    if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    if (error == 0) error = ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (error == 0) error = ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    if (error == 0) return;
    ::posix_spawn_file_actions_destroy(&actions_);
    check(error);
  }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(FileActions const&) = delete;
  FileActions& operator=(FileActions const&) = delete;
  posix_spawn_file_actions_t const* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

/// No signal blocked or ignored, whatever the host does, and a session of its own.
class Attributes {
 public:
  Attributes() {
    check(::posix_spawnattr_init(&attributes_));
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  }
  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
  Attributes(Attributes const&) = delete;
  Attributes& operator=(Attributes const&) = delete;
  posix_spawnattr_t const* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

/// `write`, without the signal that a pipe nobody reads brings. One that was pending before stays so.
ssize_t writeWithoutSignal(int descriptor, std::span<std::uint8_t const> bytes) {
  sigset_t broken;
  sigset_t pending;
  sigset_t before;
  sigemptyset(&broken);
  sigaddset(&broken, SIGPIPE);
  sigemptyset(&pending);
  ::sigpending(&pending);
  if (sigismember(&pending, SIGPIPE) == 1) return ::write(descriptor, bytes.data(), bytes.size());
  ::pthread_sigmask(SIG_BLOCK, &broken, &before);
  ssize_t const written = ::write(descriptor, bytes.data(), bytes.size());
  int const reason = errno;
  if (written < 0 && reason == EPIPE) {
    timespec const now{};
    while (::sigtimedwait(&broken, nullptr, &now) < 0 && errno == EINTR) {
    }
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = reason;
  return written;
}

/// Whether this names a child of this process that nobody has reaped yet.
bool isChild(idtype_t kind, id_t id) {
  siginfo_t told{};
  int failed;
  do {
    failed = ::waitid(kind, id, &told, WEXITED | WNOHANG | WNOWAIT);
  } while (failed != 0 && errno == EINTR);
  return failed == 0;
}

/// Ends and reaps a child that has no handle.
void endByNumber(pid_t id) {
  ::kill(id, SIGKILL);
  while (::waitpid(id, nullptr, 0) < 0 && errno == EINTR) {
  }
}

bool passes(int reason) { return reason == EAGAIN || reason == EINTR; }

}  // namespace

// Life --------------------------------------------------------------------------------------------

ChildProcess::ChildProcess(std::filesystem::path const& program, std::vector<std::string> const& arguments) {
  Pipe in = makePipe();
  Pipe out = makePipe();
  neverBlock(in.writing);
  neverBlock(out.reading);

  std::string name = program.filename().string();
  std::vector<std::string> words = arguments;
  std::vector<char*> pointers{name.data()};
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  char* const environment[] = {nullptr};

  FileActions const actions(in.reading.get(), out.writing.get());
  Attributes const attributes;
  int const error = ::posix_spawn(&id_, program.c_str(), actions.get(), attributes.get(), pointers.data(), environment);
  if (error != 0) {
    errno = error;
    throwFileError("The program cannot be started", program);
  }
  // Where somebody else reaps children, the number may be free again by now, and even be another's: nothing is sent to
  // what is no child of this process.
  handle_ = Descriptor(::pidfd_open(id_, 0));
  if (!handle_) {
    int const reason = errno;
    if (isChild(P_PID, static_cast<id_t>(id_))) endByNumber(id_);
    errno = reason;
    throwFileError("The program cannot be watched", program);
  }
  if (!isChild(P_PIDFD, static_cast<id_t>(handle_.get()))) {
    errno = ECHILD;
    throwFileError("The program cannot be watched", program);
  }
  input_ = std::move(in.writing);
  output_ = std::move(out.reading);
}

ChildProcess::~ChildProcess() {
  kill();
  wait();
}

// The pipes ---------------------------------------------------------------------------------------

std::optional<std::size_t> ChildProcess::write(std::span<std::uint8_t const> bytes) {
  ssize_t const written = writeWithoutSignal(input_.get(), bytes);
  if (written >= 0) return static_cast<std::size_t>(written);
  if (passes(errno)) return 0;
  return {};
}

std::optional<std::size_t> ChildProcess::read(std::span<std::uint8_t> into) {
  ssize_t const got = ::read(output_.get(), into.data(), into.size());
  if (got > 0) return static_cast<std::size_t>(got);
  if (got < 0 && passes(errno)) return 0;
  return {};
}

// The process -------------------------------------------------------------------------------------

void ChildProcess::kill() noexcept {
  if (!reaped_) ::pidfd_send_signal(handle_.get(), SIGKILL, nullptr, 0);
}

std::optional<int> ChildProcess::wait() noexcept {
  if (reaped_) return status_;
  siginfo_t told{};
  int failed;
  do {
    failed = ::waitid(P_PIDFD, static_cast<id_t>(handle_.get()), &told, WEXITED);
  } while (failed != 0 && errno == EINTR);
  reaped_ = true;
  if (failed == 0) status_ = told.si_code == CLD_EXITED ? told.si_status : -told.si_status;
  return status_;
}

}  // namespace tolva
