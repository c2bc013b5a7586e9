// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotLease.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <new>

#include "snapshots/StoreScene.hpp"
#include "support/Descriptors.hpp"
#include "support/Sanitizer.hpp"

namespace {

thread_local long allocationsLeft = -1;  // none fails while this is negative

}  // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they have allocation functions of their own

// Not inlined: the compiler would take the two for no pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocationsLeft >= 0 && allocationsLeft-- == 0) throw std::bad_alloc();
  void* const memory = ::malloc(size == 0 ? 1 : size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { ::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { ::free(memory); }

#endif

namespace tolva {
namespace {

TEST(SnapshotLease, HoldsNothingWhereMemoryRunsOut) {
  if (sanitized) GTEST_SKIP() << "The sanitizers have allocation functions of their own.";
  StoreScene scene;
  Snapshot const snapshot = scene.plant(std::string(100, 'x'));
  { auto const known = scene.service.open(snapshot); }
  long const open = openDescriptors();
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    failed = false;
    allocationsLeft = failures;
    try {
      scene.service.open(snapshot);
    } catch (std::exception const&) {
      failed = true;
    }
    allocationsLeft = -1;
    ASSERT_EQ(openDescriptors(), open) << "after " << failures << " allocations";
  }
  EXPECT_GT(failures, 50);
  scene.service.deleteSnapshot(snapshot);
}

}  // namespace
}  // namespace tolva
