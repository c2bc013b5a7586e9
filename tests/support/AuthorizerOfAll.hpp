// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <string>
#include <utility>

namespace tolva {

/// Answers SQLite's authorizer for each connection that is opened, for a scope. One at a time.
class AuthorizerOfAll {
 public:
  /// The name and the argument of the action; "" for one that it does not have.
  using Answer =
      std::function<int(sqlite3* connection, int action, std::string const& name, std::string const& argument)>;

  explicit AuthorizerOfAll(Answer answer) {
    current_ = std::move(answer);
    EXPECT_EQ(sqlite3_auto_extension(entry()), SQLITE_OK);
  }
  ~AuthorizerOfAll() {
    sqlite3_cancel_auto_extension(entry());
    current_ = {};
  }
  AuthorizerOfAll(AuthorizerOfAll const&) = delete;
  AuthorizerOfAll& operator=(AuthorizerOfAll const&) = delete;

 private:
  static void (*entry())() { return reinterpret_cast<void (*)()>(install); }

  static int install(sqlite3* connection, char const**, void const*) {
    return sqlite3_set_authorizer(connection, answer, connection);
  }

  static int answer(void* connection, int action, char const* name, char const* argument, char const*, char const*) {
    if (!current_) return SQLITE_OK;
    return current_(static_cast<sqlite3*>(connection), action, name ? name : "", argument ? argument : "");
  }

  static inline Answer current_;
};

}  // namespace tolva
