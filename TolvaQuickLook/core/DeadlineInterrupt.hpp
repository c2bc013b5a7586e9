// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <thread>

#include "platform/Uptime.hpp"

struct sqlite3;

namespace tolva {

/// Interrupts whatever runs on one handle once a deadline has come, and again and again until its scope ends.
///
/// The progress handler counts operations of SQLite's virtual machine, and one operation reads a whole value: entries
/// of a schema that share the pages of one large value keep it from asking the clock for a minute. An interrupt is
/// noticed at the next row, and in a schema that is being parsed at the next blank; what functions do within one row is
/// for a `MemoryBudget` to end. Belongs to the thread that made it, for as long as the handle is open. It watches from
/// a thread of its own, which it does without where no value that is stored in the databases of these names can be
/// large.
class DeadlineInterrupt {
 public:
  DeadlineInterrupt(sqlite3* handle, Uptime deadline, std::initializer_list<char const*> databases = {"main"});
  ~DeadlineInterrupt();
  DeadlineInterrupt(DeadlineInterrupt const&) = delete;
  DeadlineInterrupt& operator=(DeadlineInterrupt const&) = delete;

 private:
  std::jthread watch_;
};

/// False for a file that is up to 1 MiB, together with what was committed since: no stored value is larger than its
/// file, and one of that size is read so fast that the progress handler alone keeps the time. Expressions make larger
/// ones from nothing. True for a database that is not attached yet.
bool mayHoldLargeValues(sqlite3* handle, char const* name = "main");

}  // namespace tolva
