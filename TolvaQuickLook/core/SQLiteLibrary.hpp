// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Export.hpp"

namespace tolva {

/// The one preparation of the SQLite library, shared with whatever else in the program uses SQLite.
///
/// Any thread. Nothing changes for the program's own connections: the guard of files is named in this system's opens
/// alone, and the memory budget has no effect on a thread that armed none.
class TOLVA_EXPORT SQLiteLibrary {
 public:
  /// Puts the memory budget under SQLite's allocator and registers the guard of files, once; later calls return at
  /// once. Every open calls it. A program that uses SQLite on its own calls it before the first use of SQLite by any of
  /// its threads: once SQLite is initialised its allocator is fixed, and hostile files can then take more memory and
  /// time than the budgets say.
  static void prepare();

  /// Whether the memory budgets hold. False when SQLite had been initialised before `prepare`.
  static bool enforcesMemoryBudgets();

  /// Keeps SQLite from counting its memory for `sqlite3_memory_used`, which takes a lock at each allocation. Only for a
  /// program that is all ours, before anything else; without effect once SQLite is initialised.
  static void leaveOutStatistics();
};

}  // namespace tolva
