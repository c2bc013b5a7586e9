// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tolva {

class JSONValue;

/// A line for each of the first 500 values of a tree, containers before what they contain, keys in the order of their
/// bytes: the path from "$" on and what stands there. A path is cut to 512 characters and 16 KiB, a text to 256
/// characters. Any thread.
std::string jsonTree(JSONValue const& value);

}  // namespace tolva
