// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "preview/PDFFirstPage.hpp"

namespace tolva {

/// poppler, which draws the first page of a document and follows no link, runs no script and fills in no form.
struct DocumentDecoder {
  DocumentDecoder() = delete;

  /// None for what is no document, and for one whose first page cannot be read or drawn. A media box that is missing,
  /// is four zeros or is not four numbers cannot be told from one of 612 x 792 points, which poppler takes for it.
  static std::optional<PDFFirstPage> firstPage(std::span<std::uint8_t const> document);
};

}  // namespace tolva
