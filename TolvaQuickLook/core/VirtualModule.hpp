// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tolva {

/// The module of a statement that creates a virtual table (https://sqlite.org/lang_createvtab.html), in lower case:
/// "fts5" for `CREATE VIRTUAL TABLE t USING FTS5(x)`; nothing for any other text.
///
/// Reads the head of the statement only, up to its first parenthesis or its tenth word, with comments, quoted and
/// dotted names as SQLite takes them. Any bytes are welcome; the time is linear. Any thread.
std::optional<std::string> virtualModule(std::string_view sql);

}  // namespace tolva
