// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONPathListing.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Graphemes.hpp"
#include "platform/JSONValue.hpp"
#include "platform/UTF8.hpp"
#include "preview/JSONDescription.hpp"

namespace tolva {
namespace {

constexpr int mostNodes = 500;
constexpr std::size_t mostPathCharacters = 512;
constexpr std::size_t mostTextCharacters = 256;

// One character can be a letter with any number of marks, and each line below it would repeat them all.
constexpr std::size_t mostPathBytes = 16'384;

std::string cutPath(std::string path) {
  if (path.size() > mostPathBytes) path.resize(validUTF8Prefix(std::string_view(path).substr(0, mostPathBytes)));
  path.resize(firstGraphemes(path, mostPathCharacters).size());
  return path;
}

/// One walk over a tree.
class Listing {
 public:
  void visit(JSONValue const& value, std::string const& path) {
    ++nodes_;
    if (auto const* const members = value.asObject()) {
      addLine(path, "{" + std::to_string(members->size()) + " keys}");
      visitMembers(*members, path);
    } else if (auto const* const items = value.asArray()) {
      addLine(path, "[" + std::to_string(items->size()) + " items]");
      visitItems(*items, path);
    } else {
      addLine(path, firstGraphemes(jsonDescription(value), mostTextCharacters));
    }
  }

  std::string take() {
    if (isFull()) text_ += "\nTree limited to 500 nodes.";
    return std::move(text_);
  }

 private:
  bool isFull() const { return nodes_ == mostNodes; }

  void visitMembers(JSONValue::Object const& members, std::string const& path) {
    std::vector<JSONValue::Member const*> order;
    order.reserve(members.size());
    for (auto const& member : members) order.push_back(&member);
    // No more than these can be visited, so the rest needs no order.
    auto const shown = std::min(order.size(), static_cast<std::size_t>(mostNodes - nodes_));
    std::ranges::partial_sort(order, order.begin() + static_cast<std::ptrdiff_t>(shown), {}, &JSONValue::Member::name);
    for (auto const* const member : order) {
      if (isFull()) return;
      visit(member->value, cutPath(path + "." + member->name));
    }
  }

  void visitItems(JSONValue::Array const& items, std::string const& path) {
    for (std::size_t index = 0; index < items.size() && !isFull(); ++index) {
      visit(items[index], cutPath(path + "[" + std::to_string(index) + "]"));
    }
  }

  void addLine(std::string_view path, std::string_view says) {
    if (!text_.empty()) text_ += '\n';
    text_ += path;
    text_ += "  ";
    text_ += says;
  }

  std::string text_;
  int nodes_ = 0;
};

}  // namespace

std::string jsonTree(JSONValue const& value) {
  Listing listing;
  listing.visit(value, "$");
  return listing.take();
}

}  // namespace tolva
