// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sqlite3.h>

#include <functional>
#include <utility>

namespace tolva {

/// The SQL function "counted" of a handle: NULL for one value, and so many calls of it. The third calls `third`.
///
/// A schema may use it, as it may a function of SQLite's own. Outlives the handle's statements.
class CountedCalls {
 public:
  CountedCalls(sqlite3* handle, std::function<void()> third) : third_(std::move(third)) {
    sqlite3_create_function_v2(handle, "counted", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, this,
                               &CountedCalls::count, nullptr, nullptr, nullptr);
  }
  CountedCalls(CountedCalls const&) = delete;
  CountedCalls& operator=(CountedCalls const&) = delete;

  int calls() const { return calls_; }

 private:
  static void count(sqlite3_context* context, int, sqlite3_value**) {
    auto& self = *static_cast<CountedCalls*>(sqlite3_user_data(context));
    if (++self.calls_ == 3) self.third_();
  }

  std::function<void()> const third_;
  int calls_ = 0;
};

}  // namespace tolva
