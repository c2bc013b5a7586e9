// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>

#include "platform/Export.hpp"
#include "platform/Uptime.hpp"

namespace tolva {

/// What SQLite may allocate on this thread for a scope: a number of bytes, and until when.
///
/// A running statement can be interrupted, but one that is still being prepared cannot, nor can a schema that is being
/// parsed; both allocate all the time. Once a budget is spent SQLite gets no more memory until the scope ends and
/// fails with "out of memory" (code 7). Memory that it frees counts back. Scopes nest: an allocation is charged to all
/// of them. Belongs to the thread that made it.
///
/// Without effect when the host program had initialised SQLite before `SQLiteLibrary::prepare`.
class TOLVA_EXPORT MemoryBudget {
 public:
  static constexpr std::int64_t unlimited = std::numeric_limits<std::int64_t>::max();

  /// What a preview, or an ordinary opening of a file with the reading of its schema, may take: 256 MiB.
  static constexpr std::int64_t ordinary = std::int64_t{256} << 20;

  explicit MemoryBudget(std::int64_t bytes, Uptime deadline = Uptime::max());
  ~MemoryBudget();
  MemoryBudget(MemoryBudget const&) = delete;
  MemoryBudget& operator=(MemoryBudget const&) = delete;

  // For the allocator under SQLite --------------------------------------------------------------

  /// The innermost budget of this thread, or null.
  static MemoryBudget* armed() noexcept;

  /// Whether `bytes` more are within this budget and those around it. A refusal is final for the scope.
  bool admits(std::int64_t bytes) noexcept;

  /// Adds what was allocated, or takes off what was freed, here and in the budgets around.
  void charge(std::int64_t bytes) noexcept;

 private:
  bool exceededBy(std::int64_t bytes) noexcept;

  std::int64_t const limit_;
  Uptime const deadline_;
  MemoryBudget* const outer_;
  std::int64_t used_ = 0;
  std::uint32_t asked_ = 0;
  bool spent_ = false;
};

}  // namespace tolva
