// SPDX-License-Identifier: Apache-2.0
#include "preview/PropertyListXML.hpp"

#include <plist/plist.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/PlainLocale.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostBytes = 262'144;

struct FreeList {
  void operator()(plist_t list) const { plist_free(list); }
};
using List = std::unique_ptr<void, FreeList>;

struct FreeText {
  void operator()(char* text) const { plist_to_xml_free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

List read(std::string_view bytes) {
  plist_t list = nullptr;
  auto const size = static_cast<std::uint32_t>(bytes.size());
  if (bytes.starts_with("bplist00")) {
    plist_from_bin(bytes.data(), size, &list);
  } else {
    plist_from_xml(bytes.data(), size, &list);
  }
  return List(list);
}

/// The library writes the year 33 as "33" and markup within a text as references, so that every "<date>" is a tag.
std::string withYearsOfFourDigits(std::string_view xml) {
  constexpr std::string_view tag = "<date>";
  std::string result;
  for (auto at = xml.find(tag); at != xml.npos; at = xml.find(tag)) {
    result += xml.substr(0, at + tag.size());
    xml.remove_prefix(at + tag.size());
    result.append(4 - std::min<std::size_t>(xml.find('-'), 4), '0');
  }
  return result += xml;
}

/// The library writes a carriage return as it is, which every reader of XML takes for a line feed.
std::string withReturnsAsReferences(std::string_view xml) {
  std::string result;
  for (auto at = xml.find('\r'); at != xml.npos; at = xml.find('\r')) {
    result.append(xml.substr(0, at)).append("&#13;");
    xml.remove_prefix(at + 1);
  }
  return result += xml;
}

}  // namespace

std::optional<std::string> propertyListXML(std::string_view checked) {
  PlainLocale const plain;
  List const list = read(checked);
  if (!list) return {};
  char* written = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(list.get(), &written, &size);
  Text const text(written);
  if (!text || size > mostBytes || !isValidUTF8({text.get(), size})) return {};
  auto xml = withReturnsAsReferences(withYearsOfFourDigits({text.get(), size}));
  if (xml.size() > mostBytes) return {};
  return xml;
}

}  // namespace tolva
