// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <cstddef>
#include <string_view>
#include <utility>

#include "preview/PreviewHelpers.hpp"
#include "preview/StructuredCellPreview.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostBytes = 262'144;
constexpr char const* tooLarge =
    "PDF preview is limited to complete values up to 256 KiB. Save Bytes preserves the original document.";

StructuredCellPreview::PDF summaryAlone(std::string summary) { return {.summary = std::move(summary)}; }

}  // namespace

StructuredCellPreview::PDF StructuredCellPreview::pdf(Bytes const& bytes, PreviewHelpers const& helpers,
                                                      std::stop_token task) {
  std::string_view const whole(reinterpret_cast<char const*>(bytes.data()), bytes.size());
  if (!whole.starts_with("%PDF-")) return {};
  if (bytes.size() > mostBytes) return summaryAlone(tooLarge);
  auto page = helpers.firstPage(bytes, std::move(task));
  if (!page) return {};
  if (page->locked) return summaryAlone("Encrypted PDF. Preview unavailable; original bytes remain available.");
  if (page->pageCount < 1) return {};
  if (!page->png) return summaryAlone("PDF page dimensions exceed preview limits.");
  return {std::move(page->png),
          fmt::format("PDF · First page of {}. Static preview; links and scripts are not executed.", page->pageCount)};
}

}  // namespace tolva
