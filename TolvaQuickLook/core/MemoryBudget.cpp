// SPDX-License-Identifier: Apache-2.0
#include "core/MemoryBudget.hpp"

namespace tolva {
namespace {

constexpr std::uint32_t clockPeriod = 1024;  // allocations between two looks at the clock

constinit thread_local MemoryBudget* innermost = nullptr;

}  // namespace

MemoryBudget::MemoryBudget(std::int64_t bytes, Uptime deadline)
    : limit_(bytes), deadline_(deadline), outer_(innermost) {
  innermost = this;
}

MemoryBudget::~MemoryBudget() { innermost = outer_; }

MemoryBudget* MemoryBudget::armed() noexcept { return innermost; }

bool MemoryBudget::admits(std::int64_t bytes) noexcept {
  bool admitted = true;
  for (MemoryBudget* budget = this; budget; budget = budget->outer_) {
    budget->spent_ = budget->spent_ || budget->exceededBy(bytes);
    admitted = admitted && !budget->spent_;
  }
  return admitted;
}

void MemoryBudget::charge(std::int64_t bytes) noexcept {
  for (MemoryBudget* budget = this; budget; budget = budget->outer_) budget->used_ += bytes;
}

bool MemoryBudget::exceededBy(std::int64_t bytes) noexcept {
  if (bytes > limit_ - used_ && used_ >= 0) return true;
  return ++asked_ % clockPeriod == 0 && uptime() >= deadline_;
}

}  // namespace tolva
