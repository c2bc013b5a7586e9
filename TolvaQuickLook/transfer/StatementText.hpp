// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

namespace tolva {

/// What has to stand behind a text so that it ends as one statement and brings no other one along: ";", and before that
/// the end of a comment that `sql` leaves open. None for more than one statement and where there is doubt. Tokens are
/// those of SQLite (https://sqlite.org/lang.html). Any thread.
std::optional<std::string_view> statementEnd(std::string_view sql);

}  // namespace tolva
