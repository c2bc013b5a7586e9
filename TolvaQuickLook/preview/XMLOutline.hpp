// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "preview/PropertyListGrammar.hpp"

struct XML_ParserStruct;  // expat.h stays in the .cpp file

namespace tolva {

/// The elements and the text of one XML document as indented lines. Made for one parse; used by one thread.
///
/// At most 32 levels, 2,048 elements, 65,536 bytes of lines and as many of text between two tags. A document type
/// declaration is refused, so there are no entities but the five that every document has.
class XMLOutline {
 public:
  explicit XMLOutline(std::stop_token task) : task_(std::move(task)) {}
  XMLOutline(XMLOutline const&) = delete;
  XMLOutline& operator=(XMLOutline const&) = delete;

  /// Whether `xml` is a well-formed document (https://www.w3.org/TR/xml/) in UTF-8 within the limits, whatever encoding
  /// it claims. Called once; a cancelled task makes it false. What stands below is of use only when it is true.
  bool parse(std::string_view xml);

  /// The name of the outermost element.
  std::string const& root() const { return *root_; }

  /// Every tag and every text on a line of its own, two blanks a level, the attributes sorted by name.
  std::string text() const;

  /// Whether the document is an XML property list to the letter.
  bool isPropertyList() const { return claimsPropertyList() && grammar_.isSound(); }

  /// A property list once more as nothing but bare tags and text, for a reader that attributes, comments and
  /// instructions easily mislead about where an element begins.
  std::string const& plain() const { return plain_; }

 private:
  struct Events;
  using Attribute = std::pair<std::string_view, std::string_view>;

  void start(std::string_view name, std::vector<Attribute> attributes);
  void characters(std::string_view text);
  void end(std::string_view name);

  void flush();
  void addLine(std::int64_t level, std::string_view line);
  void fail();
  bool claimsPropertyList() const { return root_ == "plist"; }

  std::stop_token const task_;
  XML_ParserStruct* parser_ = nullptr;  // while `parse` runs
  std::int64_t depth_ = 0;
  std::int64_t nodes_ = 0;
  std::int64_t size_ = 0;  // bytes of the lines so far
  bool failed_ = false;
  std::optional<std::string> root_;
  std::vector<std::string> lines_;
  std::string pending_;  // text that has no line yet
  std::string plain_;
  PropertyListGrammar grammar_;
};

}  // namespace tolva
