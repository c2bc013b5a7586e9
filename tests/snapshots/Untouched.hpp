// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CaptureScene.hpp"
#include "support/SQLitePeer.hpp"

namespace tolva {

/// That a capture that failed has left nothing, and that the next one goes well.
inline void expectUntouched(CaptureScene const& scene) {
  EXPECT_EQ(scene.names(), std::vector<std::string>{});
  EXPECT_EQ(SQLitePeer(scene.database.path()).exec("BEGIN EXCLUSIVE"), "ok") << "a lock is left";
  Snapshot const next = scene.capture();
  EXPECT_EQ(scene.names(), std::vector<std::string>{next.id.text()});
}

}  // namespace tolva
