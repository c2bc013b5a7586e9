// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Descriptor.hpp"

namespace tolva {

/// A program in a process of its own, which shares two pipes with this one and nothing else.
///
/// It gets an empty environment, no blocked or ignored signal, a session of its own, and the descriptors 0 to 2 alone:
/// the pipes, and the null device for errors. It does not outlive the object. Used by one thread at a time.
/// A host that ignores SIGCHLD or reaps children it does not know never learns how a program ended.
class ChildProcess {
 public:
  /// Starts the program; `arguments` follow its name. Throws `std::system_error` when it cannot be started, or has
  /// ended and was reaped by somebody else before it could be watched.
  explicit ChildProcess(std::filesystem::path const& program, std::vector<std::string> const& arguments = {});
  ~ChildProcess();  // kills it if it still runs
  ChildProcess(ChildProcess const&) = delete;
  ChildProcess& operator=(ChildProcess const&) = delete;

  // The pipes ---------------------------------------------------------------------------------------

  // Both ends are here to be polled, never block, and are negative once they are closed.
  int input() const { return input_.get(); }
  int output() const { return output_.get(); }

  /// Gives as many of `bytes` as fit into the pipe now and returns their number. None once the program reads no more;
  /// SIGPIPE never reaches the host.
  std::optional<std::size_t> write(std::span<std::uint8_t const> bytes);

  /// Takes what is in the pipe now, up to the room in `into`, and returns the number. None once nothing more can come.
  std::optional<std::size_t> read(std::span<std::uint8_t> into);

  void closeInput() { input_.reset(); }
  void closeOutput() { output_.reset(); }

  // The process -------------------------------------------------------------------------------------

  pid_t id() const { return id_; }

  /// A descriptor that becomes readable when the process has ended.
  int handle() const { return handle_.get(); }

  /// Ends it at once. Never strikes another process: the handle was seen to stand for a child of this one, and stands
  /// for it even after its end.
  void kill() noexcept;

  /// Waits for its end: the exit status, or minus the signal that ended it. None when somebody else has reaped it.
  std::optional<int> wait() noexcept;

 private:
  pid_t id_ = -1;
  Descriptor handle_;
  Descriptor input_;
  Descriptor output_;
  bool reaped_ = false;
  std::optional<int> status_;
};

}  // namespace tolva
