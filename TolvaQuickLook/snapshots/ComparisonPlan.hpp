// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "core/ComparisonIdentity.hpp"

namespace tolva {

/// How the rows of one table are compared, and where in the result store the keys of those that differ lie. A value.
struct ComparisonPlan {
  std::string store;  // the name of the table in the result store
  std::string table;  // as SQLite knows it, which need not be UTF-8
  ComparisonIdentity identity;
};

}  // namespace tolva
