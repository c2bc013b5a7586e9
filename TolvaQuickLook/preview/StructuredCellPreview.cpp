// SPDX-License-Identifier: Apache-2.0
#include "preview/StructuredCellPreview.hpp"

#include <cstddef>
#include <string_view>
#include <utility>

#include "platform/ASCIICase.hpp"
#include "platform/Trim.hpp"
#include "platform/UTF8.hpp"
#include "preview/PropertyListXML.hpp"
#include "preview/SafeBinaryPropertyList.hpp"
#include "preview/XMLOutline.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostBytes = 65'536;

/// The one declaration that is known to define no entity.
constexpr std::string_view propertyListDeclaration =
    R"(<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">)";

std::string withoutKnownDeclaration(std::string_view xml) {
  std::string rest(xml);
  if (auto const at = rest.find(propertyListDeclaration); at != rest.npos)
    rest.erase(at, propertyListDeclaration.size());
  return rest;
}

/// In any case of the letters, where "ı" is a small "I" as well.
bool mayDeclare(std::string_view xml) {
  std::string const upper = upperASCII(xml);
  for (std::string_view const word : {"<!DOCTYPE", "<!ENTITY", "<!ENTıTY"}) {
    if (upper.find(word) != upper.npos) return true;
  }
  return false;
}

std::optional<StructuredCellPreview::Text> asPropertyList(std::string_view checked) {
  auto xml = propertyListXML(checked);
  if (!xml) return {};
  return StructuredCellPreview::Text{"Property List", *std::move(xml)};
}

}  // namespace

std::optional<StructuredCellPreview::Text> StructuredCellPreview::text(Bytes const& bytes, std::stop_token task) {
  if (bytes.size() > mostBytes) return {};
  std::string_view const whole(reinterpret_cast<char const*>(bytes.data()), bytes.size());
  if (whole.starts_with("bplist00")) return isSafeBinaryPropertyList(bytes) ? asPropertyList(whole) : std::nullopt;

  auto const trimmedText = trimmed(whole);
  if (!trimmedText.starts_with('<') || !isValidUTF8(trimmedText)) return {};
  std::string const xml = withoutKnownDeclaration(trimmedText);
  if (mayDeclare(xml)) return {};
  XMLOutline outline(std::move(task));
  if (!outline.parse(xml)) return {};
  if (outline.root() == "plist") {
    if (auto list = asPropertyList(outline.plain())) return list;
  }
  return Text{"XML Outline", outline.text()};
}

}  // namespace tolva
