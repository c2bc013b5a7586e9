// SPDX-License-Identifier: Apache-2.0
#include "support/Unprivileged.hpp"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "platform/Descriptor.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

constexpr uid_t nobody = 65534;

void dropPrivileges() {
  if (::geteuid() != 0) return;
  if (::setgroups(0, nullptr) != 0 || ::setresgid(nobody, nobody, nobody) != 0 ||
      ::setresuid(nobody, nobody, nobody) != 0)
    throwSystemError("The privileges cannot be dropped");
}

std::string answerOf(std::function<std::string()> const& body) {
  try {
    dropPrivileges();
    return body();
  } catch (std::exception const& error) {
    return std::string("(threw: ") + error.what() + ")";
  } catch (...) {
    return "(threw)";
  }
}

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    ssize_t const written = ::write(descriptor, text.data(), text.size());
    if (written < 0) ::_exit(1);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> part{};
  for (ssize_t got = 1; got > 0;) {
    got = ::read(descriptor, part.data(), part.size());
    if (got < 0) throwSystemError("The child's answer cannot be read");
    text.append(part.data(), static_cast<std::size_t>(got));
  }
  return text;
}

}  // namespace

std::string asUnprivileged(std::function<std::string()> const& body) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throwSystemError("pipe");
  Descriptor const answer(ends[0]);
  Descriptor writing(ends[1]);
  pid_t const child = ::fork();
  if (child < 0) throwSystemError("fork");
  if (child == 0) {
    writeAll(writing.get(), answerOf(body));
    ::_exit(0);
  }
  writing.reset();
  std::string const text = readAll(answer.get());
  int status = 0;
  if (::waitpid(child, &status, 0) != child) throwSystemError("waitpid");
  if (WIFSIGNALED(status)) return "(killed by signal " + std::to_string(WTERMSIG(status)) + ")";
  if (WEXITSTATUS(status) != 0) return "(left with " + std::to_string(WEXITSTATUS(status)) + ")";
  return text;
}

}  // namespace tolva
