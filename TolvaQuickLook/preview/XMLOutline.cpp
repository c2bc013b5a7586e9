// SPDX-License-Identifier: Apache-2.0
#include "preview/XMLOutline.hpp"

#include <expat.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

#include "platform/Trim.hpp"

namespace tolva {
namespace {

constexpr std::int64_t mostDepth = 32;
constexpr std::int64_t mostNodes = 2'048;
constexpr std::int64_t mostBytes = 65'536;  // of the lines
constexpr std::size_t mostPending = 65'536;

struct FreeParser {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser>;

/// `text` between double quotes. XML knows no control characters but these three.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (char const c : text) {
    switch (c) {
      case '"':
        result += "\\\"";
        break;
      case '\\':
        result += "\\\\";
        break;
      case '\n':
        result += "\\n";
        break;
      case '\r':
        result += "\\r";
        break;
      case '\t':
        result += "\\t";
        break;
      default:
        result += c;
    }
  }
  return result += '"';
}

/// As a CDATA section where the text holds markup: entities take a reader of property lists the square of their number.
void appendText(std::string& xml, std::string_view text) {
  constexpr std::string_view sectionEnd = "]]>";
  if (text.find_first_of("&<>") == text.npos) {
    xml += text;
    return;
  }
  xml += "<![CDATA[";
  for (auto at = text.find(sectionEnd); at != text.npos; at = text.find(sectionEnd)) {
    xml.append(text.substr(0, at + 2)).append("]]><![CDATA[");
    text.remove_prefix(at + 2);
  }
  xml.append(text).append(sectionEnd);
}

}  // namespace

/// What expat calls. It may call a few times more after it was told to stop. What these allocate is bounded, by a
/// document of 64 KiB and the limits above, and nothing may be thrown through expat: without memory for that much the
/// program ends.
struct XMLOutline::Events {
  static void start(void* outline, XML_Char const* name, XML_Char const** names) noexcept {
    auto& self = *static_cast<XMLOutline*>(outline);
    if (self.failed_) return;
    std::vector<Attribute> attributes;
    for (; *names; names += 2) attributes.emplace_back(names[0], names[1]);
    self.start(name, std::move(attributes));
  }

  static void end(void* outline, XML_Char const* name) noexcept {
    auto& self = *static_cast<XMLOutline*>(outline);
    if (!self.failed_) self.end(name);
  }

  static void characters(void* outline, XML_Char const* text, int size) noexcept {
    auto& self = *static_cast<XMLOutline*>(outline);
    if (!self.failed_) self.characters({text, static_cast<std::size_t>(size)});
  }

  static void declaration(void* outline, XML_Char const*, XML_Char const*, XML_Char const*, int) noexcept {
    static_cast<XMLOutline*>(outline)->fail();
  }
};

bool XMLOutline::parse(std::string_view xml) {
  // No document holds a NUL, but expat would take one near the front for a sign of UTF-16, whatever it is told.
  if (xml.find('\0') != xml.npos) return false;
  Parser const parser(XML_ParserCreate("UTF-8"));
  if (!parser) throw std::bad_alloc();
  parser_ = parser.get();
  XML_SetUserData(parser_, this);
  XML_SetElementHandler(parser_, Events::start, Events::end);
  XML_SetCharacterDataHandler(parser_, Events::characters);  // of CDATA too
  XML_SetStartDoctypeDeclHandler(parser_, Events::declaration);
  auto const status = XML_Parse(parser_, xml.data(), static_cast<int>(xml.size()), /*isFinal=*/1);
  parser_ = nullptr;
  return status == XML_STATUS_OK && !failed_ && depth_ == 0 && root_;
}

std::string XMLOutline::text() const { return fmt::format("{}", fmt::join(lines_, "\n")); }

void XMLOutline::start(std::string_view name, std::vector<Attribute> attributes) {
  flush();
  if (!root_) root_ = name;
  ++depth_;
  ++nodes_;
  if (failed_ || depth_ > mostDepth || nodes_ > mostNodes) return fail();
  std::ranges::sort(attributes);
  std::string line = "<" + std::string(name);
  for (auto const& [attribute, value] : attributes) line += fmt::format(" {}={}", attribute, quoted(value));
  line += '>';
  addLine(depth_ - 1, line);
  if (!claimsPropertyList()) return;
  plain_ += fmt::format("<{}>", name);
  grammar_.start(name);
}

void XMLOutline::characters(std::string_view text) {
  pending_ += text;
  if (pending_.size() > mostPending) fail();
}

void XMLOutline::end(std::string_view name) {
  flush();
  if (failed_) return;
  --depth_;
  addLine(depth_, fmt::format("</{}>", name));
  if (!claimsPropertyList()) return;
  plain_ += fmt::format("</{}>", name);
  grammar_.end();
}

void XMLOutline::flush() {
  auto const text = trimmed(pending_);
  if (!text.empty()) addLine(depth_, text);
  if (claimsPropertyList()) {
    appendText(plain_, pending_);
    grammar_.text(pending_);
  }
  pending_.clear();
}

void XMLOutline::addLine(std::int64_t level, std::string_view line) {
  auto const indent = static_cast<std::size_t>(2 * level);
  size_ += static_cast<std::int64_t>(indent + line.size());
  if (size_ > mostBytes || task_.stop_requested()) return fail();
  lines_.push_back(std::string(indent, ' ').append(line));
}

void XMLOutline::fail() {
  failed_ = true;
  XML_StopParser(parser_, /*resumable=*/XML_FALSE);
}

}  // namespace tolva
