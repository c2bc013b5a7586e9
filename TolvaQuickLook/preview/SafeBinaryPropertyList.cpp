// SPDX-License-Identifier: Apache-2.0
#include "preview/SafeBinaryPropertyList.hpp"

#include <cstddef>
#include <limits>
#include <optional>

namespace tolva {
namespace {

constexpr std::int64_t headerSize = 8;
constexpr std::int64_t trailerSize = 32;
constexpr std::int64_t mostObjects = 2'048;
constexpr std::int64_t mostVisits = 2'048;
constexpr int mostDepth = 32;
constexpr std::int64_t mostReferences = 2'048;  // of one object
constexpr std::int64_t mostLength = 65'536;     // that an object may claim
constexpr std::int64_t mostText = 262'144;      // of all visits together

bool isWidth(std::int64_t width) { return width == 1 || width == 2 || width == 4 || width == 8; }

/// The numbers at the end of a list that lead to everything else.
struct Trailer {
  std::int64_t offsetWidth;
  std::int64_t referenceWidth;
  std::int64_t objects;
  std::int64_t top;
  std::int64_t table;
};

/// A marker byte with the length that follows from it.
struct Object {
  int kind;
  std::int64_t length;   // in units of its kind
  std::int64_t content;  // where that begins
};

class Walk {
 public:
  explicit Walk(std::span<std::uint8_t const> list) : list_(list) {}

  bool fromTop() {
    auto const read = trailer();
    if (!read) return false;
    trailer_ = *read;
    return visit(trailer_.top, /*depth=*/0);
  }

 private:
  std::int64_t size() const { return static_cast<std::int64_t>(list_.size()); }
  std::uint8_t at(std::int64_t offset) const { return list_[static_cast<std::size_t>(offset)]; }

  /// Whether `count` units of `width` bytes lie inside the data from `offset` on. Counts and widths are small, so that
  /// nothing overflows.
  bool fits(std::int64_t offset, std::int64_t count, std::int64_t width = 1) const {
    return offset <= size() && count * width <= size() - offset;
  }

  /// The big-endian number at an offset that fits. None for one that takes the sign's bit of 64.
  std::optional<std::int64_t> number(std::int64_t offset, std::int64_t width) const {
    std::uint64_t value = 0;
    for (std::int64_t index = 0; index < width; ++index) value = value << 8 | at(offset + index);
    if (value > std::numeric_limits<std::int64_t>::max()) return {};
    return static_cast<std::int64_t>(value);
  }

  std::optional<Trailer> trailer() const {
    if (size() < headerSize + trailerSize) return {};
    auto const begin = size() - trailerSize;
    auto const objects = number(begin + 8, 8);
    auto const top = number(begin + 16, 8);
    auto const table = number(begin + 24, 8);
    if (!objects || !top || !table) return {};
    Trailer const read{at(begin + 6), at(begin + 7), *objects, *top, *table};
    if (read.objects < 1 || read.objects > mostObjects || read.top >= read.objects) return {};
    if (!isWidth(read.offsetWidth) || !isWidth(read.referenceWidth)) return {};
    if (read.table < headerSize || read.table > begin) return {};
    if (read.objects * read.offsetWidth > begin - read.table) return {};
    return read;
  }

  std::optional<std::int64_t> offsetOf(std::int64_t index) const {
    if (index >= trailer_.objects) return {};
    auto const offset = number(trailer_.table + index * trailer_.offsetWidth, trailer_.offsetWidth);
    if (!offset || *offset < headerSize || *offset >= size()) return {};
    return offset;
  }

  /// Reads the integer that stands behind a marker whose own four bits are not enough for the length.
  std::optional<Object> longObject(int kind, std::int64_t offset) const {
    if (!fits(offset, 1) || at(offset) >> 4 != 1 || (at(offset) & 0xF) > 3) return {};
    std::int64_t const width = std::int64_t{1} << (at(offset) & 0xF);
    if (!fits(offset + 1, width)) return {};
    auto const length = number(offset + 1, width);
    if (!length || *length > mostLength) return {};
    return Object{kind, *length, offset + 1 + width};
  }

  std::optional<Object> object(std::int64_t offset) const {
    int const kind = at(offset) >> 4;
    int const low = at(offset) & 0xF;
    bool const hasLength = kind >= 4 && kind <= 13;
    if (hasLength && low == 15) return longObject(kind, offset + 1);
    return Object{kind, low, offset + 1};
  }

  bool visit(std::int64_t index, int depth) {
    if (++visits_ > mostVisits || depth > mostDepth) return false;
    auto const offset = offsetOf(index);
    auto const found = offset ? object(*offset) : std::nullopt;
    if (!found) return false;
    auto const& [kind, length, content] = *found;
    switch (kind) {
      case 0:
        return length == 0 || length == 8 || length == 9 || length == 15;  // null, false, true, fill
      case 1:
      case 2:
        return length <= 3 && fits(content, std::int64_t{1} << length);  // integer, real
      case 3:
        return length == 3 && fits(content, 8);  // date
      case 4:
      case 5:
        return fits(content, length) && charge(length);  // data, ASCII
      case 6:
        return fits(content, length, 2) && charge(length);  // UTF-16
      case 10:
      case 12:
        return visitAll(content, length, depth);  // array, set
      case 13:
        return visitAll(content, 2 * length, depth);  // dictionary: the keys, then the values
      default:
        return false;
    }
  }

  bool visitAll(std::int64_t references, std::int64_t count, int depth) {
    if (count > mostReferences || !fits(references, count, trailer_.referenceWidth)) return false;
    for (std::int64_t each = 0; each < count; ++each) {
      auto const index = number(references + each * trailer_.referenceWidth, trailer_.referenceWidth);
      if (!index || !visit(*index, depth + 1)) return false;
    }
    return true;
  }

  /// Every unit of data or text is at least a byte of the list written as XML.
  bool charge(std::int64_t units) { return (text_ += units) <= mostText; }

  std::span<std::uint8_t const> const list_;
  Trailer trailer_{};
  std::int64_t visits_ = 0;
  std::int64_t text_ = 0;
};

}  // namespace

bool isSafeBinaryPropertyList(std::span<std::uint8_t const> list) { return Walk(list).fromTop(); }

}  // namespace tolva
