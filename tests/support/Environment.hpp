// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace tolva {

/// Gives a variable of the environment another value for a scope.
class Environment {
 public:
  Environment(char const* name, std::string const& value) : name_(name) {
    if (char const* const before = std::getenv(name)) before_ = before;
    setenv(name, value.c_str(), 1);
  }
  ~Environment() {
    if (before_)
      setenv(name_, before_->c_str(), 1);
    else
      unsetenv(name_);
  }
  Environment(Environment const&) = delete;
  Environment& operator=(Environment const&) = delete;

 private:
  char const* name_;
  std::optional<std::string> before_;
};

}  // namespace tolva
