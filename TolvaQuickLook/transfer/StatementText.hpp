// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace tolva {

/// Whether a text is one statement and nothing else, so that ";" behind it ends it and it brings no other one along.
/// Tokens are those of SQLite (https://sqlite.org/lang.html); where it leaves doubt the answer is no. Any thread.
bool isOneStatement(std::string_view sql);

}  // namespace tolva
