// SPDX-License-Identifier: Apache-2.0
#include "preview/StructuredCellPreview.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <string_view>
#include <utility>

#include "platform/ASCIICase.hpp"
#include "platform/Trim.hpp"
#include "platform/UTF8.hpp"
#include "preview/PreviewHelpers.hpp"
#include "preview/PropertyListXML.hpp"
#include "preview/SafeBinaryPropertyList.hpp"
#include "preview/XMLOutline.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostTextBytes = 65'536;
constexpr std::size_t mostDocumentBytes = 262'144;
constexpr char const* documentTooLarge =
    "PDF preview is limited to complete values up to 256 KiB. Save Bytes preserves the original document.";

std::string_view viewOf(Bytes const& bytes) { return {reinterpret_cast<char const*>(bytes.data()), bytes.size()}; }

/// The one declaration that is known to define no entity.
constexpr std::string_view propertyListDeclaration =
    R"(<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">)";

std::string withoutKnownDeclaration(std::string_view xml) {
  std::string rest(xml);
  auto const at = rest.find(propertyListDeclaration);
  if (at != rest.npos) rest.erase(at, propertyListDeclaration.size());
  return rest;
}

/// In any case of the letters. Of the characters beyond ASCII "ı" becomes an "I" in upper case, and "ẙ" begins with a
/// "Y" there; no other one makes such a word.
bool mayDeclare(std::string_view xml) {
  std::string const upper = upperASCII(xml);
  for (std::string_view const word : {"<!DOCTYPE", "<!ENTITY", "<!ENTıTY", "<!ENTITẙ", "<!ENTıTẙ"}) {
    if (upper.find(word) != upper.npos) return true;
  }
  return false;
}

std::optional<StructuredCellPreview::Text> asPropertyList(std::string_view checked) {
  auto xml = propertyListXML(checked);
  if (!xml) return {};
  return StructuredCellPreview::Text{"Property List", *std::move(xml)};
}

StructuredCellPreview::PDF summaryAlone(std::string summary) { return {.summary = std::move(summary)}; }

}  // namespace

std::optional<StructuredCellPreview::Text> StructuredCellPreview::text(Bytes const& bytes, std::stop_token task) {
  if (bytes.size() > mostTextBytes) return {};
  auto const whole = viewOf(bytes);
  if (whole.starts_with("bplist00")) {
    return isSafeBinaryPropertyList(bytes) && fitsXML(bytes) ? asPropertyList(whole) : std::nullopt;
  }

  if (!isValidUTF8(whole) || !trimmed(whole).starts_with('<')) return {};
  std::string const xml = withoutKnownDeclaration(trimmed(whole));
  if (mayDeclare(xml)) return {};
  XMLOutline outline(std::move(task));
  if (!outline.parse(xml)) return {};
  if (outline.isPropertyList()) {
    if (auto list = asPropertyList(outline.plain())) return list;
  }
  return Text{"XML Outline", outline.text()};
}

StructuredCellPreview::PDF StructuredCellPreview::pdf(Bytes const& bytes, PreviewHelpers const& helpers,
                                                      std::stop_token task) {
  if (!viewOf(bytes).starts_with("%PDF-")) return {};
  if (bytes.size() > mostDocumentBytes) return summaryAlone(documentTooLarge);
  auto page = helpers.firstPage(bytes, std::move(task));
  if (!page) return {};
  if (page->locked) return summaryAlone("Encrypted PDF. Preview unavailable; original bytes remain available.");
  if (page->pageCount < 1) return {};
  if (!page->png) return summaryAlone("PDF page dimensions exceed preview limits.");
  return {std::move(page->png),
          fmt::format("PDF · First page of {}. Static preview; links and scripts are not executed.", page->pageCount)};
}

}  // namespace tolva
