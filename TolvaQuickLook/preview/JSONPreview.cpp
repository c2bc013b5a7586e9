// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONPreview.hpp"

#include <cstddef>

#include "platform/JSONReader.hpp"
#include "platform/JSONWriter.hpp"
#include "preview/JSONDepth.hpp"
#include "preview/JSONPathListing.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostBytes = 262'144;
constexpr std::size_t mostPrettyBytes = 1'048'576;

}  // namespace

std::optional<JSONPreview> jsonPreview(std::string_view bytes) try {
  if (bytes.size() > mostBytes || !jsonDepthIsSafe(bytes)) return std::nullopt;
  JSONValue const value = readJSON(bytes);
  std::string pretty = writeJSON(value, {.sortedKeys = true, .pretty = true});
  if (pretty.size() > mostPrettyBytes) return std::nullopt;
  return JSONPreview{.pretty = std::move(pretty), .nodes = PreviewTreeNode::json(value), .paths = jsonTree(value)};
} catch (JSONError const&) {
  return std::nullopt;  // most values are no JSON
}

}  // namespace tolva
