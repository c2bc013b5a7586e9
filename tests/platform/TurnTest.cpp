// SPDX-License-Identifier: Apache-2.0
#include "platform/Turn.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tolva {
namespace {

TEST(Turn, RunsOneCallAtATime) {
  TurnQueue turns;
  int inside = 0;
  int most = 0;
  int done = 0;
  {
    std::vector<std::jthread> callers;
    for (int caller = 0; caller < 8; ++caller) {
      callers.emplace_back([&] {
        for (int call = 0; call < 200; ++call) {
          Turn turn(turns);
          most = std::max(most, ++inside);
          ++done;
          --inside;
        }
      });
    }
  }
  EXPECT_EQ(most, 1);
  EXPECT_EQ(done, 1600);
}

TEST(Turn, ServesCallersInTheOrderTheyCame) {
  TurnQueue turns;
  std::vector<int> order;
  std::vector<std::jthread> callers;
  {
    Turn turn(turns);
    for (int caller = 0; caller < 5; ++caller) {
      callers.emplace_back([&turns, &order, caller] {
        Turn own(turns);
        order.push_back(caller);
      });
      std::this_thread::sleep_for(std::chrono::milliseconds(20));  // long enough for the caller to stand in the queue
    }
  }
  callers.clear();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(Turn, LetsOthersInWhileItIsAwayAndWaitsToComeBack) {
  TurnQueue turns;
  std::vector<std::string> story;
  Turn turn(turns);
  std::string const answer = turn.away([&] {
    std::jthread([&] {
      Turn other(turns);
      story.push_back("other");
    }).join();
    return std::string("answer");
  });
  story.push_back(answer);
  EXPECT_EQ(story, (std::vector<std::string>{"other", "answer"}));
}

TEST(Turn, IsHeldAgainWhenACallThatWasAwayThrows) {
  TurnQueue turns;
  Turn turn(turns);
  EXPECT_THROW(turn.away([] { throw std::runtime_error("gone"); }), std::runtime_error);
  std::atomic<bool> entered = false;
  std::jthread other([&] {
    Turn own(turns);
    entered = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(entered);
  turn.away([&] { other.join(); });
  EXPECT_TRUE(entered);
}

TEST(TurnDeathTest, AbortsAThreadThatWaitsForATurnWhileItHoldsOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TurnQueue one;
  TurnQueue other;
  EXPECT_DEATH(
      {
        Turn turn(one);
        Turn nested(other);
      },
      "waits for a turn while it holds one");
}

}  // namespace
}  // namespace tolva
