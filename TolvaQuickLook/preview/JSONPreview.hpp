// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "preview/PreviewTreeNode.hpp"

namespace tolva {

/// What is shown of bytes that are JSON. A value.
struct JSONPreview {
  std::string pretty;                  // indented, keys sorted; reads back as the same value
  std::vector<PreviewTreeNode> nodes;  // the root alone
  std::string paths;                   // a line for each path
};

/// None for what is no JSON, for more than 256 KiB, more than 64 levels, and where the pretty text is above 1 MiB.
/// Any thread.
std::optional<JSONPreview> jsonPreview(std::string_view bytes);

}  // namespace tolva
