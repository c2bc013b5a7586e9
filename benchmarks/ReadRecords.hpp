// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"

/// Every row of the table `records` read whole, as the services read: the handle's lock held across the loop. Says what
/// was read, counted from the values.
inline std::string readRecords(tolva::SQLiteConnection& connection) {
  auto statement = connection.prepare("SELECT * FROM records");
  tolva::HandleLock const held(connection);
  long rows = 0;
  std::size_t columns = 0;
  long long integers = 0, bytes = 0, nulls = 0;
  double reals = 0;
  for (; statement.step(); ++rows) {
    std::vector<tolva::SQLiteValue> const row = statement.row(/*full=*/true);
    columns = row.size();
    for (tolva::SQLiteValue const& value : row) {
      if (auto const* integer = value.asInteger()) integers ^= *integer;
      if (auto const* real = value.asReal()) reals += *real;
      if (auto const* text = value.asText()) bytes += static_cast<long long>(text->size());
      if (value.isNull()) ++nulls;
    }
  }
  char done[200];
  std::snprintf(done, sizeof done,
                "%ld rows of %zu columns, %lld bytes of text, %lld NULLs, integers %lld, reals %.17g", rows, columns,
                bytes, nulls, integers, reals);
  return done;
}
