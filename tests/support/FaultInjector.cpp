// SPDX-License-Identifier: Apache-2.0
#include "support/FaultInjector.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "platform/SystemError.hpp"

namespace tolva {
namespace {

struct Mode {
  FaultMode mode;
  char const* name;
  int error;
  bool lasting;
};

constexpr Mode modes[] = {
    {FaultMode::error, "EIO once", EIO, false},
    {FaultMode::fullDisk, "ENOSPC from then on", ENOSPC, true},
    {FaultMode::kill, "SIGKILL", 0, false},
};

std::ptrdiff_t openDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

FaultOutcome outcomeOf(std::function<void()> const& operation) {
  try {
    operation();
    return {FaultOutcome::Told::success, {}};
  } catch (std::exception const& error) {
    return {FaultOutcome::Told::failure, error.what()};
  }
}

FaultOutcome failingAt(std::filesystem::path const& folder, Fault fault, std::function<void()> const& operation) {
  auto const before = openDescriptors();
  FaultOutcome outcome;
  {
    FaultInjector const injector(folder, fault);
    outcome = outcomeOf(operation);
    EXPECT_GE(injector.calls(), fault.at) << "The call never came.";
  }
  EXPECT_EQ(openDescriptors(), before) << "The operation leaves descriptors open.";
  return outcome;
}

FaultOutcome killedAt(std::filesystem::path const& folder, Fault fault, std::function<void()> const& operation) {
  pid_t const child = ::fork();
  if (child < 0) throwSystemError("fork");
  if (child == 0) {
    FaultInjector const injector(folder, fault);
    outcomeOf(operation);
    ::_exit(0);
  }
  int status = 0;
  if (::waitpid(child, &status, 0) != child) throwSystemError("waitpid");
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "The call never came.";
  return {};
}

}  // namespace

FaultInjector::FaultInjector(std::filesystem::path const& folder, Fault fault) {
  faultPlan::arm(std::filesystem::canonical(folder), fault);
}

long FaultInjector::count(std::filesystem::path const& folder, std::function<void()> const& operation) {
  FaultInjector const injector(folder);
  operation();
  return injector.calls();
}

bool FaultInjector::failing(std::filesystem::path const& folder, long n, int error, bool persistent,
                            std::function<void()> const& operation) {
  FaultInjector const injector(folder, {.at = n, .error = error, .lasting = persistent});
  operation();
  return injector.calls() >= n;
}

bool FaultInjector::writingNothing(std::filesystem::path const& folder, long n,
                                   std::function<void()> const& operation) {
  FaultInjector const injector(folder, {.at = n, .error = EIO, .empty = true});
  operation();
  return injector.calls() >= n;
}

bool FaultInjector::before(std::filesystem::path const& folder, long n, std::function<void()> const& action,
                           std::function<void()> const& operation) {
  FaultInjector const injector(folder, {.at = n, .before = &action});
  operation();
  return injector.calls() >= n;
}

long forEachFault(std::filesystem::path const& folder, std::function<void()> const& prepare,
                  std::function<void()> const& operation,
                  std::function<void(FaultMode mode, long n, FaultOutcome const& outcome)> const& check, long most) {
  prepare();
  long const calls = FaultInjector::count(folder, operation);
  EXPECT_GT(calls, 0) << "The operation changes nothing below the folder.";
  long const points = std::min(calls, most);
  for (Mode const& mode : modes) {
    for (long point = 0; point < points; ++point) {
      long const n = points == 1 ? 1 : 1 + point * (calls - 1) / (points - 1);
      SCOPED_TRACE(std::string(mode.name) + " at call " + std::to_string(n) + " of " + std::to_string(calls));
      prepare();
      Fault const fault{.at = n, .error = mode.error, .lasting = mode.lasting};
      check(mode.mode, n, mode.error == 0 ? killedAt(folder, fault, operation) : failingAt(folder, fault, operation));
    }
  }
  return calls;
}

}  // namespace tolva
