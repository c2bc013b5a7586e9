// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONPreview.hpp"

#include <cstddef>
#include <exception>
#include <new>
#include <utility>

#include "platform/JSONReader.hpp"
#include "platform/JSONWriter.hpp"
#include "preview/JSONDepth.hpp"
#include "preview/JSONPathListing.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostBytes = 262'144;
constexpr std::size_t mostPrettyBytes = 1'048'576;

/// Whether the reader may see the bytes. Only what begins with a bracket or a quote can hold brackets and yet be JSON:
/// of any other text the reader stops at once, so it is not scanned to its end.
bool isSafe(std::string_view bytes) {
  auto const first = bytes.find_first_not_of(" \t\n\r");
  if (first == bytes.npos) return false;
  bool const mayHoldBrackets = std::string_view("{[\"").find(bytes[first]) != bytes.npos;
  return !mayHoldBrackets || jsonDepthIsSafe(bytes);
}

}  // namespace

std::optional<JSONPreview> jsonPreview(std::string_view bytes) try {
  if (bytes.size() > mostBytes || !isSafe(bytes)) return std::nullopt;
  JSONValue const value = readJSON(bytes);
  std::string pretty = writeJSON(value, {.sortedKeys = true, .pretty = true});
  if (pretty.size() > mostPrettyBytes) return std::nullopt;
  return JSONPreview{.pretty = std::move(pretty), .nodes = PreviewTreeNode::json(value), .paths = jsonTree(value)};
} catch (std::bad_alloc const&) {
  throw;
} catch (std::exception const&) {
  // Most values are no JSON, which is a `JSONError`. But whatever else fails here, ICU for instance, which a broken
  // installation leaves without its rules, must not take the rest of the preview away. No cancellation is noticed here.
  return std::nullopt;
}

}  // namespace tolva
