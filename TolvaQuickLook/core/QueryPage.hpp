// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "core/SQLiteValue.hpp"

namespace tolva {

/// One page of the result of a script.
struct QueryPage {
  std::vector<std::string> columns;            // empty when the script yields no rows
  std::vector<std::vector<SQLiteValue>> rows;  // large values are markers
  bool finished = false;                       // no further rows exist beyond this page
  std::int64_t affected = 0;                   // rows changed so far by the script
  std::chrono::duration<double> duration{};    // since the run started

  bool operator==(QueryPage const&) const = default;
};

}  // namespace tolva
