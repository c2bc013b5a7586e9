// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Export.hpp"

namespace tolva {

class JSONValue;
class JSONWriter;

/// One node of the tree that a preview shows: made here from JSON, or supplied by somebody and then checked first.
struct TOLVA_EXPORT PreviewTreeNode {
  std::string id;                                        // unique within its tree
  std::string label;                                     // the left column
  std::string value;                                     // the right column
  std::optional<std::vector<PreviewTreeNode>> children;  // absent for a leaf

  bool operator==(PreviewTreeNode const&) const = default;

  void encode(JSONWriter& out) const;                     // keys are the names of the fields
  static PreviewTreeNode decode(JSONValue const& coded);  // throws `JSONError`

  /// The tree of a JSON value as a list that holds its root, labelled "$": at most 450 nodes and 24 levels below the
  /// root. An array or object of which less is shown says so in its value, and has a list of children, if an empty one.
  static std::vector<PreviewTreeNode> json(JSONValue const& value);

  /// Throws `DatabaseError` unless the tree is within what an interface shows: 500 nodes, 32 levels below the roots,
  /// distinct ids of 1 to 160 bytes, labels of 512, values of 2,048, and 128 KiB as JSON. The texts are UTF-8, as
  /// all that was decoded is.
  static void validate(std::vector<PreviewTreeNode> const& nodes);
};

}  // namespace tolva
