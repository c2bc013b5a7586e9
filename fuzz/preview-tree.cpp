// SPDX-License-Identifier: Apache-2.0
// Any bytes as JSON: its tree is bounded, numbered in the order of its walk and honest about what it leaves out; as a
// supplied tree it is accepted or refused, and survives its coding.

#include <cstdint>
#include <string>
#include <vector>

#include "core/DatabaseError.hpp"
#include "fuzz/Expect.hpp"
#include "platform/Graphemes.hpp"
#include "platform/JSONCodec.hpp"
#include "platform/JSONReader.hpp"
#include "platform/UTF8.hpp"
#include "preview/PreviewTreeNode.hpp"

namespace tolva {
namespace {

/// Goes over the tree and the JSON that it was made of, side by side.
class Comparison {
 public:
  void node(PreviewTreeNode const& node, JSONValue const& value, int depth) {
    ++nodes;
    expect(node.id == std::to_string(nodes), "ids count the nodes in their order");
    expect(graphemeCount(node.label) <= 100 && graphemeCount(node.value) <= 120, "labels and values are cut");
    expect(isValidUTF8(node.label) && isValidUTF8(node.value), "labels and values are UTF-8");
    auto const* const members = value.asObject();
    auto const* const items = value.asArray();
    expect(node.children.has_value() == (members || items), "only containers have children");
    if (!node.children) return;
    std::size_t const count = members ? members->size() : items->size();
    bool const whole = node.children->size() == count;
    expect(node.value == std::to_string(count) + (members ? " keys" : " items") + (whole ? "" : " · limited"),
           "a container counts what it holds");
    expect(whole || depth == 24 || cut(node) >= 450, "children are left out only for depth or number");
    expect(depth < 24 || node.children->empty(), "there are 24 levels below the root");
    for (std::size_t index = 0; index < node.children->size(); ++index) {
      auto const& child = (*node.children)[index];
      if (items) {
        this->node(child, (*items)[index], depth + 1);
      } else {
        this->node(child, memberOf(*members, index), depth + 1);
      }
    }
  }

  std::size_t nodes = 0;

 private:
  /// The member with so many smaller names.
  static JSONValue const& memberOf(JSONValue::Object const& members, std::size_t index) {
    for (auto const& member : members) {
      std::size_t smaller = 0;
      for (auto const& other : members) smaller += other.name < member.name;
      if (smaller == index) return member.value;
    }
    expect(false, "names differ");
    return members.front().value;
  }

  /// The number of the last node below, or of the node itself.
  static std::size_t cut(PreviewTreeNode const& node) {
    PreviewTreeNode const* last = &node;
    while (last->children && !last->children->empty()) last = &last->children->back();
    return std::stoul(last->id);
  }
};

void checkMade(JSONValue const& value) {
  auto const nodes = PreviewTreeNode::json(value);
  expect(nodes.size() == 1, "a tree has one root");
  Comparison comparison;
  comparison.node(nodes.front(), value, 0);
  expect(comparison.nodes <= 450, "a tree has at most 450 nodes");
}

void checkSupplied(JSONValue const& value) try {
  auto const nodes = decodeJSON<std::vector<PreviewTreeNode>>(value);
  std::string const coded = encodeJSON(nodes);
  expect(decodeJSON<std::vector<PreviewTreeNode>>(readJSON(coded)) == nodes, "a coded tree reads back");
  try {
    PreviewTreeNode::validate(nodes);
    expect(coded.size() <= 131'072, "an accepted tree is at most 128 KiB");
  } catch (DatabaseError const& error) {
    expect(error.code == 1, "a refused tree is our own refusal");
  }
} catch (JSONError const&) {
  // Most JSON is no tree.
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  try {
    auto const value = tolva::readJSON({reinterpret_cast<char const*>(data), size});
    tolva::checkMade(value);
    tolva::checkSupplied(value);
  } catch (tolva::JSONError const&) {
    // Refused.
  }
  return 0;
}
