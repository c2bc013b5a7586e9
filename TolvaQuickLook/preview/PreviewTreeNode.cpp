// SPDX-License-Identifier: Apache-2.0
#include "preview/PreviewTreeNode.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <unordered_set>

#include "core/DatabaseError.hpp"
#include "core/Limit.hpp"
#include "platform/Graphemes.hpp"
#include "platform/JSONCodec.hpp"
#include "preview/JSONDescription.hpp"

namespace tolva {
namespace {

// Made from JSON ---------------------------------------------------------------------------------

constexpr std::size_t mostNodesMade = 450;
constexpr int depthWithoutChildren = 24;
constexpr std::size_t labelCharacters = 100;
constexpr std::size_t valueCharacters = 120;

/// One walk over a JSON value. Its depth is bounded, so recursion is too.
class TreeMaker {
 public:
  PreviewTreeNode visit(JSONValue const& value, std::string_view label, int depth) {
    PreviewTreeNode node{std::to_string(++visited_), std::string(firstGraphemes(label, labelCharacters))};
    if (auto const* const members = value.asObject()) {
      node.children = membersOf(*members, depth);
      node.value = countText(members->size(), "keys", node.children->size());
    } else if (auto const* const items = value.asArray()) {
      node.children = itemsOf(*items, depth);
      node.value = countText(items->size(), "items", node.children->size());
    } else {
      std::string const text = jsonDescription(value);
      node.value = firstGraphemes(text, valueCharacters);
    }
    return node;
  }

 private:
  bool mayDescend(int depth) const { return depth < depthWithoutChildren && visited_ < mostNodesMade; }

  std::vector<PreviewTreeNode> membersOf(JSONValue::Object const& members, int depth) {
    std::vector<PreviewTreeNode> nodes;
    if (!mayDescend(depth)) return nodes;
    std::vector<JSONValue::Member const*> sorted;
    sorted.reserve(members.size());
    for (auto const& member : members) sorted.push_back(&member);
    // No more than these can be visited, so the rest needs no order.
    auto const shown = std::min(sorted.size(), mostNodesMade - visited_);
    std::ranges::partial_sort(sorted, sorted.begin() + static_cast<std::ptrdiff_t>(shown), {},
                              &JSONValue::Member::name);
    for (auto const* const member : sorted) {
      if (!mayDescend(depth)) break;
      nodes.push_back(visit(member->value, member->name, depth + 1));
    }
    return nodes;
  }

  std::vector<PreviewTreeNode> itemsOf(JSONValue::Array const& items, int depth) {
    std::vector<PreviewTreeNode> nodes;
    for (std::size_t index = 0; index < items.size() && mayDescend(depth); ++index) {
      nodes.push_back(visit(items[index], fmt::format("[{}]", index), depth + 1));
    }
    return nodes;
  }

  static std::string countText(std::size_t count, std::string_view what, std::size_t shown) {
    return fmt::format("{} {}{}", count, what, shown < count ? " · limited" : "");
  }

  std::size_t visited_ = 0;
};

// Supplied by somebody ---------------------------------------------------------------------------

constexpr std::size_t mostNodes = 500;
constexpr int mostDepth = 32;
constexpr std::size_t mostIDBytes = 160;
constexpr std::size_t mostLabelBytes = 512;
constexpr std::size_t mostValueBytes = 2'048;
constexpr Limit mostJSONBytes{131'072, "Tree exceeds 128 KiB."};

/// One walk over a supplied tree, which ends at the first node that breaks a rule.
class TreeCheck {
 public:
  void visit(std::vector<PreviewTreeNode> const& nodes, int depth) {
    for (auto const& node : nodes) {
      bool const bounded = ++count_ <= mostNodes && depth <= mostDepth && node.id.size() <= mostIDBytes &&
                           node.label.size() <= mostLabelBytes && node.value.size() <= mostValueBytes;
      if (!bounded || node.id.empty() || !ids_.insert(node.id).second) {
        throw DatabaseError("Tree exceeds node/depth/text bounds or has duplicate IDs.");
      }
      if (node.children) visit(*node.children, depth + 1);
    }
  }

 private:
  std::size_t count_ = 0;
  std::unordered_set<std::string_view> ids_;  // of the nodes, which outlive the walk
};

}  // namespace

void PreviewTreeNode::encode(JSONWriter& out) const {
  out.beginObject();
  JSONField<std::string>::write("id", id, out);
  JSONField<std::string>::write("label", label, out);
  JSONField<std::string>::write("value", value, out);
  JSONField<decltype(children)>::write("children", children, out);
  out.endObject();
}

PreviewTreeNode PreviewTreeNode::decode(JSONValue const& coded) {
  if (!coded.asObject()) refuseJSON("", "record");
  return {JSONField<std::string>::read("id", coded), JSONField<std::string>::read("label", coded),
          JSONField<std::string>::read("value", coded), JSONField<decltype(children)>::read("children", coded)};
}

std::vector<PreviewTreeNode> PreviewTreeNode::json(JSONValue const& value) {
  std::vector<PreviewTreeNode> roots;
  roots.push_back(TreeMaker().visit(value, "$", /*depth=*/0));
  return roots;
}

void PreviewTreeNode::validate(std::vector<PreviewTreeNode> const& nodes) {
  TreeCheck().visit(nodes, /*depth=*/0);
  mostJSONBytes.check(static_cast<std::int64_t>(encodeJSON(nodes).size()));
}

}  // namespace tolva
