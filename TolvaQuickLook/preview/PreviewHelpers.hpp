// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>

#include "platform/Bytes.hpp"
#include "platform/Export.hpp"
#include "preview/PDFFirstPage.hpp"

namespace tolva {

/// Decodes pictures and PDF pages, which is dangerous, in programs of their own: confined, bounded, killed after three
/// seconds. Whatever goes wrong there, and a helper that is not installed, is no answer and no failure.
///
/// Any thread; each call starts a process and blocks until it has ended. In a program that ignores SIGCHLD, or reaps
/// children that it does not know, how a helper ended cannot be told, so that there is never an answer.
class TOLVA_EXPORT PreviewHelpers {
 public:
  /// The helpers of this installation, or those of the build folder when run from there.
  PreviewHelpers();

  /// The helpers `tolva-image-helper` and `tolva-pdf-helper` in `folder`; with an empty path there are none.
  explicit PreviewHelpers(std::filesystem::path const& folder);

  /// The picture as a PNG of at most 1024 pixels a side, upright. None for what is no picture of a known format, or is
  /// over 16 MiB, 16,384 pixels a side or 40,000,000 in all. Throws `TaskCancelled`.
  std::optional<Bytes> thumbnail(Bytes const& picture, std::stop_token task) const;

  /// None for what is over 256 KiB, cannot be opened as a document, or has a first page that cannot be drawn. Throws
  /// `TaskCancelled`.
  std::optional<PDFFirstPage> firstPage(Bytes const& document, std::stop_token task) const;

 private:
  std::filesystem::path folder_;
};

}  // namespace tolva
