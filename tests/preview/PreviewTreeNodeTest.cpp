// SPDX-License-Identifier: Apache-2.0
#include "preview/PreviewTreeNode.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "platform/JSONCodec.hpp"
#include "platform/JSONReader.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/Repeated.hpp"

namespace tolva {
namespace {

using Nodes = std::vector<PreviewTreeNode>;

/// A tree as lines "id label = value", two blanks a level; a leaf ends in a point.
std::string linesOf(Nodes const& nodes, std::size_t level = 0) {
  std::string lines;
  for (auto const& node : nodes) {
    lines += std::string(2 * level, ' ') + node.id + " " + node.label + " = " + node.value;
    lines += node.children ? "\n" + linesOf(*node.children, level + 1) : ".\n";
  }
  return lines;
}

std::string treeOf(std::string_view json) { return linesOf(PreviewTreeNode::json(readJSON(json))); }

std::size_t count(Nodes const& nodes) {
  std::size_t all = nodes.size();
  for (auto const& node : nodes) all += node.children ? count(*node.children) : 0;
  return all;
}

struct TreeCase {
  char const* says;
  std::string json;
  std::string lines;
};

TreeCase const trees[] = {
    {"null", "null", "1 $ = null.\n"},
    {"true", "true", "1 $ = true.\n"},
    {"false is no number", "false", "1 $ = false.\n"},
    {"0 and 1 are no booleans", "[0, 1]", "1 $ = 2 items\n  2 [0] = 0.\n  3 [1] = 1.\n"},
    {"a fraction", "0.1", "1 $ = 0.1.\n"},
    {"a large real", "1e300", "1 $ = 1e+300.\n"},
    {"what no double can hold", "1e400", "1 $ = 1e400.\n"},
    {"the largest integer", "9223372036854775807", "1 $ = 9223372036854775807.\n"},
    {"a string", R"("a\nb")", "1 $ = a\nb.\n"},
    {"an empty object", "{}", "1 $ = 0 keys\n"},
    {"an empty array", "[]", "1 $ = 0 items\n"},
    {"keys are sorted and ids count the visits", R"({"b": {"d": 1, "c": 2}, "a": null})",
     "1 $ = 2 keys\n  2 a = null.\n  3 b = 2 keys\n    4 c = 2.\n    5 d = 1.\n"},
    {"keys are sorted by their bytes", R"({"ä": 1, "b": 2, "B": 3, "": 4})",
     "1 $ = 4 keys\n  2  = 4.\n  3 B = 3.\n  4 b = 2.\n  5 ä = 1.\n"},
};

TEST(PreviewTreeNode, ShowsEachKindOfJSON) {
  for (TreeCase const& tree : trees) {
    SCOPED_TRACE(tree.says);
    EXPECT_EQ(treeOf(tree.json), tree.lines);
  }
}

TEST(PreviewTreeNode, CutsLabelsAndValuesByCharacters) {
  std::string const family = "👨‍👩‍👧";
  auto const cut = [&](std::string const& json) { return PreviewTreeNode::json(readJSON(json)).front(); };
  EXPECT_EQ(cut("\"" + repeated(family, 120) + "\"").value, repeated(family, 120));
  EXPECT_EQ(cut("\"" + repeated(family, 121) + "\"").value, repeated(family, 120));
  EXPECT_EQ(cut("{\"" + repeated("é", 100) + "\":1}").children->front().label, repeated("é", 100));
  EXPECT_EQ(cut("{\"" + repeated("é", 101) + "\":1}").children->front().label, repeated("é", 100));
}

TEST(PreviewTreeNode, MakesChildrenDownToLevel24) {
  auto const nested = [](std::size_t levels) { return repeated("[", levels) + repeated("]", levels); };
  auto const deepest = [](Nodes const& nodes) {
    PreviewTreeNode const* node = &nodes.front();
    while (!node->children->empty()) node = &node->children->front();
    return *node;
  };
  EXPECT_EQ(deepest(PreviewTreeNode::json(readJSON(nested(25)))), (PreviewTreeNode{"25", "[0]", "0 items", Nodes()}));
  EXPECT_EQ(deepest(PreviewTreeNode::json(readJSON(nested(26)))),
            (PreviewTreeNode{"25", "[0]", "1 items · limited", Nodes()}));
  EXPECT_EQ(deepest(PreviewTreeNode::json(readJSON(repeated("{\"a\":[", 20) + repeated("]}", 20)))),
            (PreviewTreeNode{"25", "[0]", "1 keys · limited", Nodes()}));
  EXPECT_EQ(count(PreviewTreeNode::json(readJSON(nested(512)))), 25);
}

TEST(PreviewTreeNode, MakesAtMost450Nodes) {
  auto const array = [](std::size_t items) { return "[0" + repeated(",0", items - 1) + "]"; };
  auto const full = PreviewTreeNode::json(readJSON(array(449)));
  EXPECT_EQ(full.front().value, "449 items");
  EXPECT_EQ(count(full), 450);
  auto const limited = PreviewTreeNode::json(readJSON(array(450)));
  EXPECT_EQ(limited.front().value, "450 items · limited");
  EXPECT_EQ(count(limited), 450);
  EXPECT_EQ(limited.front().children->back().id, "450");
}

TEST(PreviewTreeNode, ShowsTheFirstKeysOfALargeObject) {
  std::string json = "{\"a\":{\"z\":0}";
  for (int key = 2'000; key > 1'000; --key) json += ",\"b" + std::to_string(key) + "\":0";
  auto const root = PreviewTreeNode::json(readJSON(json + "}")).front();
  EXPECT_EQ(root.value, "1001 keys · limited");
  EXPECT_EQ(root.children->size(), 448);  // and the root and "z"
  EXPECT_EQ(root.children->front().label, "a");
  EXPECT_EQ(root.children->at(1).label, "b1001");
  EXPECT_EQ(root.children->back().label, "b1447");
}

TEST(PreviewTreeNode, SharesTheLimitAmongTheBranches) {
  auto const root = PreviewTreeNode::json(readJSON("[" + repeated("[0,0,0,0,0,0,0,0,0],", 50) + "0]")).front();
  EXPECT_EQ(count({root}), 450);
  EXPECT_EQ(root.children->at(43).value, "9 items");
  EXPECT_EQ(root.children->back().value, "9 items · limited");
  EXPECT_EQ(root.children->size(), 45);
  EXPECT_EQ(root.value, "51 items · limited");
}

TEST(PreviewTreeNode, ShowsTheWholeOfEveryValidDocument) {
  TOLVA_NEEDS_CORPORA();
  for (auto const& file : corpusFiles("json-jsontestsuite", ".json")) {
    if (!file.filename().string().starts_with("y_")) continue;
    SCOPED_TRACE(file);
    EXPECT_NO_THROW(PreviewTreeNode::validate(PreviewTreeNode::json(readJSON(contents(file)))));
  }
}

// Supplied trees ---------------------------------------------------------------------------------

PreviewTreeNode leaf(std::string id, std::string label = {}, std::string value = {}) {
  return {std::move(id), std::move(label), std::move(value), {}};
}

Nodes leaves(std::size_t number) {
  Nodes nodes;
  for (std::size_t index = 0; index < number; ++index) nodes.push_back(leaf(std::to_string(index)));
  return nodes;
}

/// A chain whose last node stands that many levels below its root.
Nodes chain(int depth) {
  PreviewTreeNode node = leaf(std::to_string(depth));
  while (depth-- > 0) node = {std::to_string(depth), "", "", Nodes{node}};
  return {node};
}

struct SuppliedCase {
  char const* says;
  Nodes nodes;
  bool accepted;
};

SuppliedCase const supplied[] = {
    {"nothing", {}, true},
    {"500 nodes", leaves(500), true},
    {"501 nodes", leaves(501), false},
    {"501 nodes on two levels", {{"root", "", "", leaves(500)}}, false},
    {"500 nodes on two levels", {{"root", "", "", leaves(499)}}, true},
    {"32 levels below the root", chain(32), true},
    {"33 levels below the root", chain(33), false},
    {"an empty id", {leaf("")}, false},
    {"one id twice", {leaf("a"), leaf("b"), leaf("a")}, false},
    {"one id on two levels", {{"a", "", "", Nodes{leaf("a")}}}, false},
    {"one id in two branches", {{"a", "", "", leaves(1)}, {"b", "", "", leaves(1)}}, false},
    {"ids that differ in case", {leaf("a"), leaf("A")}, true},
    {"an empty list of children", {{"a", "", "", Nodes()}}, true},
    {"an id of 160 bytes", {leaf(std::string(160, 'i'))}, true},
    {"an id of 161 bytes", {leaf(std::string(161, 'i'))}, false},
    {"an id of 81 characters in 162 bytes", {leaf(repeated("é", 81))}, false},
    {"a label of 512 bytes", {leaf("a", std::string(512, 'l'))}, true},
    {"a label of 513 bytes", {leaf("a", std::string(513, 'l'))}, false},
    {"a value of 2,048 bytes", {leaf("a", "", std::string(2'048, 'v'))}, true},
    {"a value of 2,049 bytes", {leaf("a", "", std::string(2'049, 'v'))}, false},
    {"a fault below a sound root", {{"a", "", "", Nodes{leaf("b"), leaf("")}}}, false},
};

TEST(PreviewTreeNode, AcceptsASuppliedTreeWithinItsBounds) {
  for (SuppliedCase const& one : supplied) {
    SCOPED_TRACE(one.says);
    auto const check = [&] { PreviewTreeNode::validate(one.nodes); };
    if (one.accepted) {
      EXPECT_NO_THROW(check());
    } else {
      EXPECT_EQ(failureOf(check), DatabaseError("Tree exceeds node/depth/text bounds or has duplicate IDs."));
    }
  }
}

/// Nodes whose JSON has exactly so many bytes.
Nodes nodesOfSize(std::size_t bytes) {
  Nodes nodes = leaves(70);
  std::size_t missing = bytes - encodeJSON(nodes).size();
  for (auto& node : nodes) {
    auto const taken = std::min<std::size_t>(missing, 2'048);
    node.value.assign(taken, 'v');
    missing -= taken;
  }
  EXPECT_EQ(encodeJSON(nodes).size(), bytes);
  return nodes;
}

TEST(PreviewTreeNode, AcceptsASuppliedTreeOf128KiB) {
  EXPECT_NO_THROW(PreviewTreeNode::validate(nodesOfSize(131'072)));
  EXPECT_EQ(failureOf([] { PreviewTreeNode::validate(nodesOfSize(131'073)); }), DatabaseError("Tree exceeds 128 KiB."));
}

TEST(PreviewTreeNode, CountsTheEscapesOfJSON) {
  Nodes nodes = leaves(40);
  for (auto& node : nodes) node.value.assign(2'048, '\1');  // six bytes each in JSON
  EXPECT_EQ(failureOf([&] { PreviewTreeNode::validate(nodes); }), DatabaseError("Tree exceeds 128 KiB."));
}

TEST(PreviewTreeNode, NamesTheBrokenRuleBeforeTheSize) {
  Nodes nodes = nodesOfSize(131'073);
  nodes.push_back(leaf(""));
  EXPECT_EQ(failureOf([&] { PreviewTreeNode::validate(nodes); }),
            DatabaseError("Tree exceeds node/depth/text bounds or has duplicate IDs."));
}

// Coding -----------------------------------------------------------------------------------------

TEST(PreviewTreeNode, IsCodedWithItsFieldsAsKeys) {
  Nodes const nodes{{"1", "a", "b", Nodes{leaf("2"), {"3", "", "", Nodes()}}}};
  std::string const json = R"([{"id":"1","label":"a","value":"b","children":[{"id":"2","label":"","value":""},)"
                           R"({"id":"3","label":"","value":"","children":[]}]}])";
  EXPECT_EQ(encodeJSON(nodes), json);
  EXPECT_EQ(decodeJSON<Nodes>(readJSON(json)), nodes);
}

TEST(PreviewTreeNode, ReadsANullAsNoChildrenAndIgnoresOtherKeys) {
  auto const node =
      decodeJSON<PreviewTreeNode>(readJSON(R"({"x":1,"value":"v","label":"l","id":"i","children":null})"));
  EXPECT_EQ(node, leaf("i", "l", "v"));
}

TEST(PreviewTreeNode, RefusesWhatIsNoNode) {
  for (char const* const json :
       {"1", "[]", R"({"id":"a","label":"b"})", R"({"id":1,"label":"","value":""})",
        R"({"id":"","label":"","value":"","children":{}})", R"({"id":"","label":"","value":"","children":[1]})"}) {
    SCOPED_TRACE(json);
    EXPECT_THROW(decodeJSON<PreviewTreeNode>(readJSON(json)), JSONError);
  }
}

}  // namespace
}  // namespace tolva
