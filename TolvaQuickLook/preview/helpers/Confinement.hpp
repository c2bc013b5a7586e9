// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

namespace tolva {

/// What a decoder cannot do without, beside memory and time.
struct ConfinementNeeds {
  std::span<char const* const> readable{};  // folders of files to read
  bool threads = false;
};

/// Gives up, for the rest of this process, all that a decoder of hostile bytes has no need of.
///
/// What is left: the descriptors 0 to 2, memory (768 MiB of addresses in all, none of it executable that is not so
/// already), 3 seconds of processor time, 30 of any time, and what it needs: threads, and reading the files below
/// `readable`. These stay closed as well on a kernel without Landlock, which alone can tell one file from another. Gone
/// are new privileges and old capabilities, other processes, programs, sockets, writing to files, core dumps. A call
/// that the libraries try and can do without fails; any other ends the process with SIGSYS. The process dies with the
/// thread that started it; should that have ended already, the 30 seconds end it, unless hostile code waits in it for
/// nothing.
///
/// Two things stay open that no filter closes. With `readable`, the size, times and owner of any file and the target of
/// any link that the user could ask for can be asked for: Landlock guards only what they hold. With `threads` hostile
/// code can start as many of them, asleep, as the user may have at all, until the host ends the process: a limit of its
/// own for one process takes a user namespace, which many systems refuse.
///
/// Called once, with one thread, before the first hostile byte is read. False when any part of it cannot be had; then
/// the process must end.
bool confine(ConfinementNeeds const& needs);

}  // namespace tolva
