// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <string>

namespace tolva {

/// Gives a variable that was not set a value for a scope.
class Environment {
 public:
  Environment(char const* name, std::string const& value) : name_(name) { setenv(name, value.c_str(), 1); }
  ~Environment() { unsetenv(name_); }
  Environment(Environment const&) = delete;
  Environment& operator=(Environment const&) = delete;

 private:
  char const* name_;
};

}  // namespace tolva
