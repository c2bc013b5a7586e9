// SPDX-License-Identifier: Apache-2.0
// Any bytes as XML: an outline has each tag of the document, balanced and in its order, and no document with an entity
// of its own has one.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Expect.hpp"
#include "platform/ASCIICase.hpp"
#include "platform/Bytes.hpp"
#include "platform/UTF8.hpp"
#include "preview/StructuredCellPreview.hpp"
#include "preview/XMLOutline.hpp"

namespace tolva {
namespace {

/// The tags of a document that is known to be well-formed, found by looking for brackets.
class Tags {
 public:
  explicit Tags(std::string_view xml) : rest_(xml) {
    while (!rest_.empty()) {
      if (take("<!--")) {
        skipPast("-->");
      } else if (take("<![CDATA[")) {
        skipPast("]]>");
      } else if (take("<?")) {
        skipPast("?>");
      } else if (take("</")) {
        end(rest_.substr(0, rest_.find_first_of(" \t\r\n>")));
        skipPast(">");
      } else if (take("<")) {
        tag();
      } else {
        character();
      }
    }
  }

  std::vector<std::string> lines;  // how each line begins that shows a tag
  int depth = 0;
  int deepest = 0;
  int elements = 0;

 private:
  bool take(std::string_view text) {
    if (!rest_.starts_with(text)) return false;
    rest_.remove_prefix(text.size());
    return true;
  }

  void skipPast(std::string_view text) {
    auto const at = rest_.find(text);
    expect(at != rest_.npos, "what is open in a well-formed document ends");
    rest_.remove_prefix(at + text.size());
  }

  void end(std::string_view name) {
    --depth;
    lines.push_back(indent() + "</" + std::string(name) + ">");
  }

  void tag() {
    std::string const name(rest_.substr(0, rest_.find_first_of(" \t\r\n/>")));
    lines.push_back(indent() + "<" + name);
    ++elements;
    deepest = std::max(deepest, ++depth);
    char quote = 0;
    bool slash = false;
    for (; quote || rest_.front() != '>'; character()) {
      char const c = rest_.front();
      slash = !quote && c == '/';
      if (quote == c) {
        quote = 0;
      } else if (!quote && (c == '"' || c == '\'')) {
        quote = c;
      }
    }
    take(">");
    if (slash) end(name);
  }

  void character() {
    if (rest_.front() == '&') {
      constexpr std::string_view known[] = {"&lt;", "&gt;", "&amp;", "&apos;", "&quot;", "&#"};
      expect(std::ranges::any_of(known, [&](auto reference) { return rest_.starts_with(reference); }),
             "no document with an entity has an outline");
    }
    rest_.remove_prefix(1);
    expect(!rest_.empty() || depth == 0, "what is open in a well-formed document ends");
  }

  std::string indent() const { return std::string(static_cast<std::size_t>(2 * depth), ' '); }

  std::string_view rest_;
};

void checkOutline(std::string_view xml) {
  XMLOutline outline({});
  if (!outline.parse(xml)) return;
  expect(upperASCII(xml).find("<!DOCTYPE ") == std::string::npos || xml.find("<!DOCTYPE") == xml.npos ||
             xml.find("<![CDATA[") != xml.npos || xml.find("<!--") != xml.npos || xml.find("<?") != xml.npos,
         "no document with a type declaration has an outline");
  Tags const tags(xml);
  expect(tags.depth == 0 && tags.deepest <= 32 && tags.elements <= 2'048, "an outline is balanced and bounded");
  std::string const text = "\n" + outline.text() + "\n";
  expect(text.size() <= 65'536 + 2 * 2 * 2'048 + 2'048 * 2 + 2,
         "an outline has at most 65,536 bytes and its line feeds");
  std::size_t at = 0;
  for (std::string const& line : tags.lines) {
    at = text.find("\n" + line, at);
    expect(at != text.npos, "an outline has every tag in its order");
    ++at;
  }
  expect(text.ends_with("\n</" + outline.root() + ">\n"), "an outline ends with its root");
  expect(isValidUTF8(text), "an outline is UTF-8");
  if (outline.root() == "plist") {
    XMLOutline again({});
    expect(again.parse(outline.plain()) && again.root() == "plist", "the plain form is XML");
    Tags const plain(outline.plain());
    expect(plain.elements == tags.elements && plain.deepest == tags.deepest, "the plain form has the same elements");
  }
}

void checkPreview(std::string_view xml) {
  auto const shown = StructuredCellPreview::text(Bytes(xml.begin(), xml.end()), {});
  if (!shown || xml.starts_with("bplist00")) return;
  expect(upperASCII(xml).find("<!ENTITY") == std::string::npos, "no text with an entity's declaration is shown");
  expect(isValidUTF8(shown->text) && shown->text.size() <= 262'144, "what is shown is bounded UTF-8");
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const xml(reinterpret_cast<char const*>(data), size);
  tolva::checkOutline(xml);
  tolva::checkPreview(xml);
  return 0;
}
