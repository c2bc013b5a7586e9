// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace tolva {

/// Which of the counted calls is harmed, and how. A value.
struct Fault {
  long at = 0;                                    // counted from 1; 0 harms none
  int error = 0;                                  // the errno that it fails with; 0 kills the process instead
  bool lasting = false;                           // whether all later ones fail as well
  bool reads = false;                             // whether the calls that read are counted, and only those
  bool empty = false;                             // whether a `write` does nothing and returns 0 instead of failing
  std::function<void()> const* before = nullptr;  // if set, done before the call, which is left unharmed; never throws

  /// If set, told of every counted call before it is done, with its descriptor or -1; none is harmed. Never throws.
  std::function<void(char const* call, int descriptor)> const* watch = nullptr;
};

/// Where a call acts: at an open folder, AT_FDCWD included, and a path.
struct CallPlace {
  int folder;
  char const* path;
};

/// What the process's file calls do at this moment, shared by the injector and the calls themselves.
///
/// The questions may come from any thread at any time, before main and in a forked child: they take no lock and no
/// memory. Arming and disarming is for one thread.
namespace faultPlan {

void arm(std::string const& folder, Fault fault);  // `folder` is a real path; aborts if one is armed already
void disarm();
long calls();
std::string trace();  // the names of the calls, in order, with blanks between

/// Whether the call is to fail now; `errno` is set then. Counts it if it acts below the folder.
bool strikes(char const* call, int descriptor) noexcept;
bool strikes(char const* call, CallPlace place) noexcept;
bool strikes(char const* call, CallPlace from, CallPlace to) noexcept;
bool strikesRemoval(char const* call, CallPlace place) noexcept;  // a full disk lets these through
bool strikesRead(char const* call, int descriptor) noexcept;      // counted only where the plan is for reads

/// What a `write` returns that is struck.
long resultOfWrite() noexcept;

}  // namespace faultPlan
}  // namespace tolva
