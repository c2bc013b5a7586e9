// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace tolva {

/// How a program ended and what it said.
struct CommandResult {
  int status = -1;  // exit status, or minus the signal that ended it
  std::string output;
  std::string errors;
  std::chrono::duration<double> seconds{};
  std::chrono::duration<double> processor{};  // time of it that it computed, which a busy machine does not stretch
  long peakMemory = 0;                        // KiB of resident memory
};

struct CommandOptions {
  std::filesystem::path folder{};          // to run in; the test's own if empty
  std::vector<std::string> environment{};  // "NAME=value", all that the program gets; the test's own if empty
  std::filesystem::path output{};          // a file that takes standard output
};

/// Runs a program with arguments, waits for its end and collects what it wrote.
CommandResult runCommand(std::vector<std::string> const& arguments, CommandOptions const& options = {});

}  // namespace tolva
