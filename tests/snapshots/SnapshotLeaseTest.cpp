// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotLease.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <new>

#include "snapshots/StoreScene.hpp"
#include "support/Descriptors.hpp"

namespace {

thread_local long allocationsLeft = -1;  // none fails while this is negative

}  // namespace

void* operator new(std::size_t size) {
  if (allocationsLeft >= 0 && allocationsLeft-- == 0) throw std::bad_alloc();
  void* const memory = ::malloc(size == 0 ? 1 : size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept { ::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { ::free(memory); }

namespace tolva {
namespace {

TEST(SnapshotLease, HoldsNothingWhereMemoryRunsOut) {
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
