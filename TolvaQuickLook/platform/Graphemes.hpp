// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace tolva {

/// Walks over a text by extended grapheme clusters (https://unicode.org/reports/tr29/), what a person takes for one
/// character: CR LF is one, so is a letter with its combining marks, so is a family of emoji. An ill-formed sequence
/// counts as one U+FFFD.
///
/// For one user at a time. The text must outlive the cursor and all that it returned. Most clusters are one character
/// beside another plain one and are told without ICU's rules, which are loaded when the first other one is met.
class GraphemeCursor {
 public:
  explicit GraphemeCursor(std::string_view text);
  ~GraphemeCursor();
  GraphemeCursor(GraphemeCursor const&) = delete;
  GraphemeCursor& operator=(GraphemeCursor const&) = delete;

  /// The next cluster, a part of the text and never empty; nothing at its end. Together they are the whole text.
  std::optional<std::string_view> next() {
    if (at_ == text_.size()) return std::nullopt;
    std::size_t const begin = at_;
    at_ = standsInASCII(begin) ? begin + 1 : clusterEnd(begin);
    return text_.substr(begin, at_ - begin);
  }

  /// Begins anew with another text and keeps what was loaded.
  void reset(std::string_view text);

 private:
  struct Rules;

  /// Whether the byte and the next one are ASCII and no CR LF: then there is a cluster's end between them.
  bool standsInASCII(std::size_t at) const {
    if (at + 1 >= text_.size()) return false;
    auto const one = static_cast<unsigned char>(text_[at]);
    auto const next = static_cast<unsigned char>(text_[at + 1]);
    return (one | next) < 0x80 && !(one == '\r' && next == '\n');
  }

  std::size_t clusterEnd(std::size_t begin);

  std::string_view text_;
  std::size_t at_ = 0;
  std::unique_ptr<Rules> rules_;
};

std::size_t graphemeCount(std::string_view text);

/// The first `count` clusters of `text`; all of it when it has fewer.
std::string_view firstGraphemes(std::string_view text, std::size_t count);

}  // namespace tolva
