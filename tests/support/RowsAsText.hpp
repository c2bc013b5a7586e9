// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

struct sqlite3;

namespace tolva {

/// The result of `sql` as one text, "1|a\n2|b": a NULL as NULL, a blob as x'00ff', everything else as SQLite turns it
/// into text; of several statements all rows, one after the other. Opens the file anew and closes it again, which
/// recovers it after a crash as any program would. Throws `DatabaseError` with the extended code.
std::string rowsAsText(std::filesystem::path const& database, std::string const& sql);

/// The same on a connection that is open already.
std::string rowsAsText(sqlite3* connection, std::string const& sql);

}  // namespace tolva
