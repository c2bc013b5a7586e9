// SPDX-License-Identifier: Apache-2.0
// Any bytes as a cell that may hold JSON: what is shown is the same value, bounded, and absent only for a reason.

#include <cstdint>
#include <string>

#include "fuzz/Expect.hpp"
#include "platform/JSONReader.hpp"
#include "platform/JSONWriter.hpp"
#include "platform/UTF8.hpp"
#include "preview/JSONDepth.hpp"
#include "preview/JSONPreview.hpp"

namespace tolva {
namespace {

/// Byte by byte, with the state in three variables.
bool depthIsSafe(std::string_view bytes) {
  int depth = 0;
  bool inString = false;
  bool escaped = false;
  for (char const byte : bytes) {
    if (escaped) {
      escaped = false;
    } else if (inString) {
      escaped = byte == '\\';
      inString = byte != '"';
    } else {
      inString = byte == '"';
      if (byte == '{' || byte == '[') ++depth;
      if (byte == '}' || byte == ']') --depth;
      if (depth < 0 || depth > 64) return false;
    }
  }
  return depth == 0 && !inString;
}

int nodesOf(std::vector<PreviewTreeNode> const& nodes) {
  int count = 0;
  for (PreviewTreeNode const& node : nodes) count += 1 + (node.children ? nodesOf(*node.children) : 0);
  return count;
}

std::string canonical(JSONValue const& value) { return writeJSON(value, {.sortedKeys = true}); }

void checkShown(JSONPreview const& preview, JSONValue const& value) {
  expect(canonical(readJSON(preview.pretty)) == canonical(value), "the pretty text is the value");
  expect(preview.pretty.size() <= 1'048'576, "the pretty text is at most 1 MiB");
  expect(isValidUTF8(preview.pretty) && isValidUTF8(preview.paths), "what is shown is UTF-8");
  expect(preview.nodes.size() == 1 && nodesOf(preview.nodes) <= 450, "the tree is one root and at most 450 nodes");
  expect(preview.paths.starts_with("$  "), "the paths begin at the root");
}

/// Whether what cannot be shown has a reason for it.
bool isRefused(std::string_view bytes) try {
  return !depthIsSafe(bytes) || writeJSON(readJSON(bytes), {.pretty = true}).size() > 1'048'576;
} catch (JSONError const&) {
  return true;
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const bytes(reinterpret_cast<char const*>(data), size);
  tolva::expect(tolva::jsonDepthIsSafe(bytes) == tolva::depthIsSafe(bytes), "both count the same depth");
  if (auto const preview = tolva::jsonPreview(bytes)) {
    tolva::checkShown(*preview, tolva::readJSON(bytes));
  } else {
    tolva::expect(tolva::isRefused(bytes), "only what is unsafe, too long or no JSON is not shown");
  }
  return 0;
}
