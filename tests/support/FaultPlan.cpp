// SPDX-License-Identifier: Apache-2.0
#include "support/FaultPlan.hpp"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tolva::faultPlan {
namespace {

// Constant-initialised: calls come before main. Everything but the counters is fixed while `armed` is true.
constinit std::atomic<bool> armed = false;
constinit std::atomic<long> counted = 0;
constinit std::array<std::atomic<char const*>, 10'000> names{};  // of the first calls, for `trace`
constinit Fault plan{};
constinit char root[PATH_MAX] = {};
constinit std::size_t rootLength = 0;

bool isBelow(char const* path) {
  return std::strncmp(path, root, rootLength) == 0 && (path[rootLength] == '/' || path[rootLength] == '\0');
}

/// The path of an open descriptor in `path`, which holds PATH_MAX bytes; empty if it has none.
void pathOf(int descriptor, char* path) {
  char link[40];
  std::snprintf(link, sizeof link, descriptor == AT_FDCWD ? "/proc/self/cwd" : "/proc/self/fd/%d", descriptor);
  ssize_t const length = ::readlink(link, path, PATH_MAX - 1);
  path[length > 0 ? length : 0] = '\0';
}

bool isBelow(int descriptor) {
  char path[PATH_MAX];
  pathOf(descriptor, path);
  return isBelow(path);
}

bool isBelow(CallPlace place) { return place.path[0] == '/' ? isBelow(place.path) : isBelow(place.folder); }

/// Counts a call below the folder, and fails or kills it if it is the one.
bool harms(char const* call, int descriptor, bool removal) {
  long const number = counted.fetch_add(1) + 1;
  if (number <= static_cast<long>(names.size())) names[static_cast<std::size_t>(number - 1)] = call;
  if (plan.watch) {
    int const error = errno;
    (*plan.watch)(call, descriptor);
    errno = error;
    return false;
  }
  if (plan.at == 0 || number < plan.at || (number > plan.at && !plan.lasting)) return false;
  if (plan.before) {
    int const error = errno;
    if (number == plan.at) (*plan.before)();
    errno = error;
    return false;
  }
  if (plan.error == 0) {
    ::kill(::getpid(), SIGKILL);
    for (;;) ::pause();
  }
  if (removal && plan.error == ENOSPC) return false;
  errno = plan.error;
  return true;
}

enum class Kind { change, removal, read };

/// Asks `where` for its place only while a plan for such calls is armed, and leaves `errno` alone unless the call is to
/// fail.
template <class Where>
bool ask(char const* call, Kind kind, Where&& where, int descriptor = -1) {
  if (!armed.load(std::memory_order_acquire) || plan.reads != (kind == Kind::read)) return false;
  int const before = errno;
  bool const below = where();
  errno = before;
  return below && harms(call, descriptor, kind == Kind::removal);
}

}  // namespace

void arm(std::string const& folder, Fault fault) {
  if (armed || folder.size() >= sizeof root) {
    std::fputs("A fault is armed while another is, or its folder's path is too long.\n", stderr);
    std::abort();
  }
  std::memcpy(root, folder.c_str(), folder.size() + 1);
  rootLength = folder.size();
  plan = fault;
  counted = 0;
  armed.store(true, std::memory_order_release);
}

void disarm() { armed = false; }

long calls() { return counted; }

std::string trace() {
  std::string text;
  for (std::size_t call = 0; call < names.size() && static_cast<long>(call) < calls(); ++call)
    text.append(text.empty() ? "" : " ").append(names[call].load());
  return text;
}

bool strikes(char const* call, int descriptor) noexcept {
  return ask(
      call, Kind::change, [&] { return isBelow(descriptor); }, descriptor);
}

bool strikes(char const* call, CallPlace place) noexcept {
  return ask(call, Kind::change, [&] { return isBelow(place); });
}

bool strikes(char const* call, CallPlace from, CallPlace to) noexcept {
  return ask(call, Kind::change, [&] { return isBelow(from) || isBelow(to); });
}

bool strikesRemoval(char const* call, CallPlace place) noexcept {
  return ask(call, Kind::removal, [&] { return isBelow(place); });
}

bool strikesRead(char const* call, int descriptor) noexcept {
  return ask(call, Kind::read, [&] { return isBelow(descriptor); });
}

long resultOfWrite() noexcept { return plan.empty ? 0 : -1; }

}  // namespace tolva::faultPlan
