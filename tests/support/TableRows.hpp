// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/DatabaseRow.hpp"
#include "core/TableSchema.hpp"

namespace tolva {

/// The schema of a table, view or virtual table of a file, read on a connection of its own.
TableSchema schemaOf(std::filesystem::path const& database, std::string const& name, std::string const& kind = "table");

/// How much of a row was read: as in a page, with large texts and all blobs deferred, or everything.
enum class RowValues { asInAPage, whole };

/// All rows of the table in the order of their identity, as a person sees them who browses it.
std::vector<DatabaseRow> rowsOf(std::filesystem::path const& database, TableSchema const& schema,
                                RowValues values = RowValues::asInAPage);

}  // namespace tolva
