// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bytes.hpp"
#include "preview/PreviewTreeNode.hpp"

namespace tolva {

/// A bounded head of one value, and all that can be shown of it.
struct CellPreview {
  std::string storageType;                // "null", "integer", "real", "text" or "blob"
  std::int64_t totalBytes = 0;            // of the whole value
  Bytes bytes;                            // the head, at most 1,048,576
  std::optional<std::string> text;        // the bytes where they are UTF-8; "NULL" for a null
  std::optional<std::string> prettyJSON;  // indented, keys sorted
  std::optional<std::string> jsonTree;    // a line for each path
  std::optional<Bytes> thumbnailPNG;
  std::string hex;  // of the first 4096 bytes
  std::optional<std::vector<PreviewTreeNode>> treeNodes;
  std::optional<std::string> interpretation;
  std::optional<std::string> structuredFormat;  // "Property List" or "XML Outline"
  std::optional<std::string> structuredText;
  std::optional<Bytes> pdfThumbnailPNG;
  std::optional<std::string> pdfSummary;

  bool truncated() const { return static_cast<std::int64_t>(bytes.size()) < totalBytes; }

  bool operator==(CellPreview const&) const = default;
};

}  // namespace tolva
