// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "support/FaultPlan.hpp"

namespace tolva {

/// Counts the system calls that change something below one folder, or those that read there, and fails the n-th or
/// kills the process there.
///
/// Every thread and library of the process is seen, SQLite included; opens for reading and closes are not counted. Not
/// seen: what goes through a memory map, sendfile, or the opening of a stdio or iostream file. One scope at a time.
class FaultInjector {
 public:
  explicit FaultInjector(std::filesystem::path const& folder, Fault fault = {});
  ~FaultInjector() { faultPlan::disarm(); }
  FaultInjector(FaultInjector const&) = delete;
  FaultInjector& operator=(FaultInjector const&) = delete;

  long calls() const { return faultPlan::calls(); }

  /// The names of the calls in order, for example "openat write fsync renameat2 fsync".
  std::string trace() const { return faultPlan::trace(); }

  // For one operation -------------------------------------------------------------------------------

  static long count(std::filesystem::path const& folder, std::function<void()> const& operation);

  /// Whether the n-th call came, which failed with `error` and, if `persistent`, all later ones with it. Persistent
  /// ENOSPC is a full disk: what removes a file still works. What `operation` throws is passed through.
  static bool failing(std::filesystem::path const& folder, long n, int error, bool persistent,
                      std::function<void()> const& operation);

  /// Whether the n-th call came, which is a `write` that wrote nothing and returned 0.
  static bool writingNothing(std::filesystem::path const& folder, long n, std::function<void()> const& operation);

  /// Whether the n-th call came, before which `action` was done. Nothing fails.
  static bool before(std::filesystem::path const& folder, long n, std::function<void()> const& action,
                     std::function<void()> const& operation);
};

/// The three harms that `forEachFault` does.
enum class FaultMode {
  error,     // EIO, once
  fullDisk,  // ENOSPC, from then on
  kill,      // SIGKILL, of a forked child that does the operation
};

/// What an operation told its caller: it returned, it threw `text`, or it was killed and told nothing.
struct FaultOutcome {
  enum class Told { success, failure, nothing } told = Told::nothing;
  std::string text;
};

/// Does `operation` once for each mode and each of its calls, n = 1 and on, after `prepare` and before `check`, and
/// returns the number of its calls. Of more than `most` calls an even choice is taken, the first and the last included.
///
/// The check looks at what is on the disk and whether that agrees with what was told; it runs without harm, so it does
/// the operation again as well. Fails the test by itself if the n-th call never comes or if a descriptor stays open.
long forEachFault(std::filesystem::path const& folder, std::function<void()> const& prepare,
                  std::function<void()> const& operation,
                  std::function<void(FaultMode mode, long n, FaultOutcome const& outcome)> const& check,
                  long most = 250);

}  // namespace tolva
