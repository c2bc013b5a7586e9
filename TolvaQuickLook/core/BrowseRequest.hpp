// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/TableFilter.hpp"

namespace tolva {

/// The column that rows are sorted by. A value.
struct TableSort {
  std::string column;
  bool ascending = true;

  bool operator==(TableSort const&) const = default;
};

/// Which rows of a table or view to show, and in which order. A value; a new one shows all rows, unsorted.
struct BrowseRequest {
  std::vector<TableFilter> filters;  // all of them hold
  std::string search;             // found in any text column, ignoring the case of ASCII letters; as it is, untrimmed
  std::optional<TableSort> sort;  // rows that are equal in it, and unsorted rows, stand by their identity

  bool operator==(BrowseRequest const&) const = default;
};

}  // namespace tolva
