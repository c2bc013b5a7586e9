// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "platform/Bytes.hpp"

namespace tolva {

/// What `PreviewHelpers::firstPage` says of a PDF document. A value.
struct PDFFirstPage {
  bool locked = false;         // encrypted, and no empty password opens it: nothing else is known
  std::int64_t pageCount = 0;  // 0: the document has no pages
  double width = 0;            // of the first page's media box, in points
  double height = 0;
  std::optional<Bytes> png;  // absent where the size is outside what is drawn

  bool operator==(PDFFirstPage const&) const = default;
};

}  // namespace tolva
