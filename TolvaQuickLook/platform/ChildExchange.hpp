// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "platform/Bytes.hpp"

namespace tolva {

/// One request to a program that answers once and ends. A value.
///
/// The end of the request is the end of the pipe. A host that forks meanwhile, on another thread and without an exec,
/// has a copy of that pipe open in its child, so that the program waits for more until its time is over: then there is
/// no answer.
struct ChildExchange {
  std::filesystem::path program;
  std::vector<std::string> arguments{};
  std::chrono::milliseconds time{};  // from its start to its end
  std::size_t mostAnswer = 0;        // bytes

  /// Starts the program, gives it `request` on standard input and takes its standard output. None unless it ended with
  /// status 0, in time and with an answer of at most `mostAnswer` bytes; whether it read the whole request is its own
  /// affair. It has ended, if need be by force, when this returns or throws: `std::system_error` when it cannot be
  /// started, and `TaskCancelled`. Any thread.
  std::optional<Bytes> ask(std::span<std::uint8_t const> request, std::stop_token task) const;
};

}  // namespace tolva
