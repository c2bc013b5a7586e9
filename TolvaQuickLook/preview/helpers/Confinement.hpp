// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

namespace tolva {

/// Gives up, for the rest of this process, all that a decoder of hostile bytes has no need of.
///
/// What is left: the descriptors 0 to 2, memory (768 MiB of addresses in all, none of it executable that is not so
/// already), 3 seconds of processor time, threads, and reading the files below `readable`. These stay closed as well on a
/// kernel without Landlock, which alone can tell one file from another. Gone are new privileges and old capabilities,
/// other processes, programs, sockets, writing to files, core dumps. A call that the libraries try and can do without
/// fails; any other ends the process with SIGSYS. The process dies with the thread that started it.
///
/// Called once, with one thread, before the first hostile byte is read. False when any part of it cannot be had; then
/// the process must end.
bool confine(std::span<char const* const> readable);

}  // namespace tolva
