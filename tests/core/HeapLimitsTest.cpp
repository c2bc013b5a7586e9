// SPDX-License-Identifier: Apache-2.0
#include "core/HeapLimits.hpp"

#include <gtest/gtest.h>

#include <latch>
#include <optional>
#include <thread>

#include "support/HostHeapLimits.hpp"

namespace tolva {
namespace {

constexpr std::int64_t hard = std::int64_t{1} << 40;  // bytes
constexpr std::int64_t soft = std::int64_t{1} << 39;

/// What a script would set in a scope.
void setAsAScript() { HostHeapLimits::set(50'000'000, 40'000'000); }

TEST(HeapLimits, AreWhatTheyWereAfterAScope) {
  HostHeapLimits const host(hard, soft);
  {
    HeapLimits const scope;
    setAsAScript();
    EXPECT_FALSE(host.stand());
  }
  EXPECT_TRUE(host.stand());
}

/// The second scope begins when the script of the first has set its limits, and ends after it.
TEST(HeapLimits, AreWhatTheyWereBeforeTheFirstOfTwoScopesThatOverlapOnTwoThreads) {
  HostHeapLimits const host(hard, soft);
  std::latch begun(1);
  std::latch mayEnd(1);
  std::optional<HeapLimits> first(std::in_place);
  setAsAScript();
  std::thread other([&] {
    HeapLimits const second;
    begun.count_down();
    mayEnd.wait();
    setAsAScript();
  });
  begun.wait();
  first.reset();
  EXPECT_TRUE(host.stand());
  mayEnd.count_down();
  other.join();
  EXPECT_TRUE(host.stand());
}

/// They are asked for anew when no scope is left.
TEST(HeapLimits, KeepWhatTheHostHasSetSinceTheLastScope) {
  { HeapLimits const scope; }
  HostHeapLimits const host(hard, soft);
  {
    HeapLimits const outer;
    HeapLimits const inner;
    setAsAScript();
  }
  EXPECT_TRUE(host.stand());
}

}  // namespace
}  // namespace tolva
