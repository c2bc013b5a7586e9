// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>

#include "snapshots/ComparisonPlan.hpp"

/// The statements of a comparison, for a connection to the result store with the snapshots attached as "older" and
/// "newer". They compare by storage class and bytes, and match rows by the collations of the key. Any thread.
namespace tolva::ComparisonSQL {

/// Makes the store: `id`, `kind`, and the key of each side without a type, so that values keep their storage class.
std::string createStore(ComparisonPlan const& plan);

/// Fill the store with the inserted, the updated and the deleted rows, in this order.
std::array<std::string, 3> fillStore(ComparisonPlan const& plan);

/// Gives a row if the store holds a key with a NULL.
std::string findNullKey(ComparisonPlan const& plan);

/// Counts the rows of the table in one of the databases, in its own tree.
std::string countRows(std::string const& database, std::string const& table);

/// Counts the rows that an index of it holds, which is no partial one.
std::string countIndex(std::string const& database, std::string const& table, std::string const& index);

/// A page of the store: parameters are the last id seen and how many rows.
std::string page(ComparisonPlan const& plan);

/// One row of the store, whose id is the parameter: its kind, all columns of the older side, all of the newer, and
/// whether each differs.
std::string cells(ComparisonPlan const& plan);

}  // namespace tolva::ComparisonSQL
