// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tolva {

class JSONValue;

/// A JSON value that contains no others as a person reads it: a string as it is, a whole number from -2^63 to 2^64 - 1
/// in digits, any other as a double's shortest text. Empty for an array or object. Any thread.
std::string jsonDescription(JSONValue const& value);

}  // namespace tolva
