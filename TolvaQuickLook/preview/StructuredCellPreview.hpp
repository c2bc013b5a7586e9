// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "platform/Bytes.hpp"
#include "platform/Export.hpp"

namespace tolva {

class PreviewHelpers;

/// Recognises property lists, XML and PDF in bytes that nobody vouches for, and answers with nothing rather than fail.
struct TOLVA_EXPORT StructuredCellPreview {
  StructuredCellPreview() = delete;

  struct Text {
    std::string format;  // "Property List" or "XML Outline"
    std::string text;
    bool operator==(Text const&) const = default;
  };

  struct PDF {
    std::optional<Bytes> thumbnailPNG;
    std::optional<std::string> summary;
    bool operator==(PDF const&) const = default;
  };

  /// None for more than 65,536 bytes, for XML with any declaration that could define an entity, and for XML once `task`
  /// is cancelled.
  static std::optional<Text> text(Bytes const& bytes, std::stop_token task);

  /// Both absent for what is no PDF document. Throws `TaskCancelled`.
  static PDF pdf(Bytes const& bytes, PreviewHelpers const& helpers, std::stop_token task);
};

}  // namespace tolva
