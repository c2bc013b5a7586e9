// SPDX-License-Identifier: Apache-2.0
#include "platform/ChildExchange.hpp"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <utility>

#include "platform/ChildProcess.hpp"
#include "platform/Descriptor.hpp"
#include "platform/SystemError.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/Uptime.hpp"

namespace tolva {
namespace {

/// The way through one exchange: what is still to be given, and what has come.
class Conversation {
 public:
  Conversation(ChildProcess& child, std::span<std::uint8_t const> request, std::size_t mostAnswer)
      : child_(child), request_(request), mostAnswer_(mostAnswer) {
    if (request_.empty()) child_.closeInput();
  }

  void give() {
    auto const taken = child_.write(request_);
    if (taken) request_ = request_.subspan(*taken);
    if (!taken || request_.empty()) child_.closeInput();
  }

  /// Takes what the pipe holds now. False when that is more than may come.
  bool take() {
    std::array<std::uint8_t, 65536> piece;
    while (child_.output() >= 0) {
      auto const got = child_.read(piece);
      if (!got) child_.closeOutput();
      if (!got || *got == 0) break;
      if (*got > mostAnswer_ - answer_.size()) return false;
      answer_.insert(answer_.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(*got));
    }
    return true;
  }

  Bytes answer() { return std::move(answer_); }

 private:
  ChildProcess& child_;
  std::span<std::uint8_t const> request_;
  std::size_t const mostAnswer_;
  Bytes answer_;
};

/// Milliseconds for `poll`, rounded up, so that it does not return before the time has come.
int millisecondsUntil(Uptime deadline) {
  auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - uptime()).count();
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left, 0, 60'000));
}

}  // namespace

std::optional<Bytes> ChildExchange::ask(std::span<std::uint8_t const> request, std::stop_token task) const {
  checkCancellation(task);
  Uptime const deadline = uptime() + time;
  Descriptor const stopped(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!stopped) throwSystemError("A program cannot be watched");
  ChildProcess child(program, arguments);
  std::stop_callback const wake(task, [&] { ::eventfd_write(stopped.get(), 1); });
  Conversation conversation(child, request, mostAnswer);
  for (;;) {
    pollfd watched[] = {{child.handle(), POLLIN, 0},
                        {child.output(), POLLIN, 0},
                        {child.input(), POLLOUT, 0},
                        {stopped.get(), POLLIN, 0}};
    if (::poll(watched, std::size(watched), millisecondsUntil(deadline)) < 0 && errno != EINTR) return {};
    checkCancellation(task);
    if (uptime() >= deadline) return {};
    if (watched[2].revents != 0) conversation.give();
    if (!conversation.take()) return {};
    // Its end was seen before the last taking, so nothing of the answer is left in the pipe.
    if (watched[0].revents != 0) break;
  }
  if (child.wait() != 0) return {};
  return conversation.answer();
}

}  // namespace tolva
