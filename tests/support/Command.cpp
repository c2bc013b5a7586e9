// SPDX-License-Identifier: Apache-2.0
#include "support/Command.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace tolva {
namespace {

/// An unnamed file that takes one stream of the program, so that no full pipe can stop it.
class Capture {
 public:
  Capture() : file_(std::tmpfile()) {
    if (!file_) std::abort();
  }
  ~Capture() { std::fclose(file_); }
  Capture(Capture const&) = delete;
  Capture& operator=(Capture const&) = delete;

  int descriptor() const { return fileno(file_); }

  std::string text() const {
    std::string all;
    std::rewind(file_);
    char piece[4096];
    while (std::size_t const got = std::fread(piece, 1, sizeof piece, file_)) all.append(piece, got);
    return all;
  }

 private:
  std::FILE* file_;
};

std::vector<char*> pointers(std::vector<std::string> const& texts) {
  std::vector<char*> all;
  for (std::string const& text : texts) all.push_back(const_cast<char*>(text.c_str()));
  all.push_back(nullptr);
  return all;
}

std::chrono::duration<double> durationOf(timeval const& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

/// What the options say, and what a sanitizer is told: without it the program would report what the tests know of.
std::vector<std::string> environmentOf(CommandOptions const& options) {
  std::vector<std::string> all = options.environment;
  for (char const* const name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (char const* const value = std::getenv(name)) all.push_back(std::string(name) + "=" + value);
  }
  return all;
}

[[noreturn]] void become(std::vector<std::string> const& arguments, CommandOptions const& options, int output,
                         int errors) {
  if (!options.output.empty()) output = open(options.output.c_str(), O_WRONLY);
  if (!options.folder.empty() && chdir(options.folder.c_str()) != 0) _exit(126);
  dup2(output, 1);
  dup2(errors, 2);
  if (options.environment.empty()) {
    execv(arguments[0].c_str(), pointers(arguments).data());
  } else {
    execve(arguments[0].c_str(), pointers(arguments).data(), pointers(environmentOf(options)).data());
  }
  _exit(127);
}

}  // namespace

CommandResult runCommand(std::vector<std::string> const& arguments, CommandOptions const& options) {
  Capture const output;
  Capture const errors;
  auto const begun = std::chrono::steady_clock::now();
  pid_t const child = fork();
  if (child == 0) become(arguments, options, output.descriptor(), errors.descriptor());
  int status = 0;
  rusage used{};
  if (child < 0 || wait4(child, &status, 0, &used) != child) std::abort();
  return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
          .output = output.text(),
          .errors = errors.text(),
          .seconds = std::chrono::steady_clock::now() - begun,
          .processor = durationOf(used.ru_utime) + durationOf(used.ru_stime),
          .peakMemory = used.ru_maxrss};
}

}  // namespace tolva
