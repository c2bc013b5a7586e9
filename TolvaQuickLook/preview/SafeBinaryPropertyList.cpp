// SPDX-License-Identifier: Apache-2.0
#include "preview/SafeBinaryPropertyList.hpp"

#include <algorithm>
#include <bit>
#include <chrono>
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

/// What XML calls a character (https://www.w3.org/TR/xml/#NT-Char).
bool isXMLCharacter(std::uint32_t character) {
  return character == '\t' || character == '\n' || character == '\r' || (character >= 0x20 && character <= 0xD7FF) ||
         (character >= 0xE000 && character <= 0xFFFD) || character >= 0x1'0000;
}

bool isXMLText(std::span<std::uint8_t const> ascii) {
  return std::ranges::all_of(ascii, [](std::uint8_t byte) { return byte < 0x80 && isXMLCharacter(byte); });
}

/// The same for UTF-16 with its high bytes first. A surrogate is of use only in a pair, which is always a character.
bool isXMLTextInUTF16(std::span<std::uint8_t const> units) {
  auto const unit = [&](std::size_t at) { return static_cast<std::uint32_t>(units[at] << 8 | units[at + 1]); };
  for (std::size_t at = 0; at < units.size(); at += 2) {
    bool const isPair = at + 4 <= units.size() && unit(at) >> 10 == 0xD800 >> 10 && unit(at + 2) >> 10 == 0xDC00 >> 10;
    if (!isPair && !isXMLCharacter(unit(at))) return false;
    if (isPair) at += 2;
  }
  return true;
}

/// Whether a year of four digits holds the moment, given in seconds since 2001. Not for infinity or what is no number.
bool isXMLDate(double seconds) {
  using namespace std::chrono;
  constexpr sys_days epoch = 2001y / January / 1;
  constexpr auto first = static_cast<double>(std::chrono::seconds(sys_days(0y / January / 1) - epoch).count());
  constexpr auto end = static_cast<double>(std::chrono::seconds(sys_days(10'000y / January / 1) - epoch).count());
  return seconds >= first && seconds < end;
}

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

  /// Asked behind a walk to the end.
  bool fitsXML() const { return fitsXML_; }

 private:
  std::int64_t size() const { return static_cast<std::int64_t>(list_.size()); }
  std::uint8_t at(std::int64_t offset) const { return list_[static_cast<std::size_t>(offset)]; }

  std::span<std::uint8_t const> bytes(std::int64_t offset, std::int64_t count) const {
    return list_.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(count));
  }

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

  double real(std::int64_t offset) const {
    std::uint64_t bits = 0;
    for (std::uint8_t const byte : bytes(offset, 8)) bits = bits << 8 | byte;
    return std::bit_cast<double>(bits);
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
        return length == 0 || length == 8 || length == 9;  // null, false, true: a fill byte is no value
      case 1:
      case 2:
        return length <= 3 && fits(content, std::int64_t{1} << length);  // integer, real
      case 3:
        return length == 3 && fits(content, 8) && note(isXMLDate(real(content)));  // date
      case 4:
        return fits(content, length) && charge(length);  // data
      case 5:
        return fits(content, length) && charge(length) && note(isXMLText(bytes(content, length)));  // ASCII
      case 6:
        return fits(content, length, 2) && charge(length) && note(isXMLTextInUTF16(bytes(content, 2 * length)));
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

  /// Every unit of data or text is at least a byte of the list written as XML: what has none there does not fit XML.
  bool charge(std::int64_t units) { return (text_ += units) <= mostText; }

  /// What does not fit XML is no danger: the walk goes on.
  bool note(bool fits) {
    fitsXML_ = fitsXML_ && fits;
    return true;
  }

  std::span<std::uint8_t const> const list_;
  Trailer trailer_{};
  std::int64_t visits_ = 0;
  std::int64_t text_ = 0;
  bool fitsXML_ = true;
};

}  // namespace

bool isSafeBinaryPropertyList(std::span<std::uint8_t const> list) { return Walk(list).fromTop(); }

bool fitsXML(std::span<std::uint8_t const> list) {
  Walk walk(list);
  return walk.fromTop() && walk.fitsXML();
}

}  // namespace tolva
