// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "platform/Descriptor.hpp"
#include "platform/SystemError.hpp"
#include "snapshots/StoreLock.hpp"

namespace tolva {

/// Another process that has a lock until it ends. It is forked, so it has copies of all descriptors as well.
class LockHolder {
 public:
  explicit LockHolder(std::filesystem::path const& path, LockKind kind = LockKind::exclusive) {
    start([&] { StoreLock(path, kind).release(); });
  }

  /// One that has nothing but the descriptors of the test.
  LockHolder() {
    start([] {});
  }

  ~LockHolder() { kill(); }
  LockHolder(LockHolder const&) = delete;
  LockHolder& operator=(LockHolder const&) = delete;

  void kill() {
    if (process_ < 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  template <class Begin>
  void start(Begin const& begin) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throwSystemError("pipe");
    Descriptor const ready(ends[0]);
    Descriptor begun(ends[1]);
    process_ = ::fork();
    if (process_ == 0) {
      ::alarm(120);  // does not outlive a test that was killed
      begin();
      if (::write(begun.get(), "x", 1) != 1) ::_exit(1);
      for (;;) ::pause();
    }
    begun.reset();
    char answer = 0;
    if (process_ < 0 || ::read(ready.get(), &answer, 1) != 1) throwSystemError("The other process never began");
  }

  pid_t process_ = -1;
};

}  // namespace tolva
