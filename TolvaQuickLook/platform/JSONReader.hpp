// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/JSONError.hpp"
#include "platform/JSONValue.hpp"

namespace tolva {

/// The levels of arrays and objects that a text may have; the last one passes.
inline constexpr std::size_t jsonDepthLimit = 512;

/// Reads one JSON value (RFC 8259) that fills `text`, with white space around it. Any thread.
///
/// Strict: the text is valid UTF-8 without a byte order mark, and nothing follows the value, not even a NUL. Any value
/// may stand alone. If an object names a member twice, the last value wins, at the place of the first.
/// Throws `JSONError` with the offset where reading stopped.
JSONValue readJSON(std::string_view text);

}  // namespace tolva
