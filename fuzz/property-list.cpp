// SPDX-License-Identifier: Apache-2.0
// Any bytes as a binary property list: the check agrees with a second walker, and what passes is read without harm and
// shown as it is.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fuzz/Expect.hpp"
#include "fuzz/PropertyListValues.hpp"
#include "platform/UTF8.hpp"
#include "preview/PropertyListXML.hpp"
#include "preview/SafeBinaryPropertyList.hpp"

namespace tolva {
namespace {

/// The check once more: no recursion, no arithmetic that could overflow, one object after the other from a list.
class SecondWalker {
 public:
  explicit SecondWalker(std::span<std::uint8_t const> list) : list_(list) {}

  bool accepts() {
    if (list_.size() < 40) return false;
    std::size_t const end = list_.size() - 32;
    offsetSize_ = list_[end + 6];
    referenceSize_ = list_[end + 7];
    count_ = number(end + 8, 8);
    table_ = number(end + 24, 8);
    if (!mayBeSize(offsetSize_) || !mayBeSize(referenceSize_)) return false;
    if (count_ < 1 || count_ > 2048 || table_ < 8 || table_ + count_ * offsetSize_ > end) return false;
    waiting_.push_back({number(end + 16, 8), 0});
    for (std::size_t visits = 0; !waiting_.empty(); ++visits) {
      if (visits == 2048) return false;
      Reference const next = waiting_.back();
      waiting_.pop_back();
      if (!visit(next)) return false;
    }
    return text_ <= 262'144;
  }

 private:
  using Wide = unsigned __int128;

  struct Reference {
    Wide index;
    int depth;
  };

  static bool mayBeSize(Wide size) { return size == 1 || size == 2 || size == 4 || size == 8; }

  /// A number beyond 63 bits is larger than all that it is compared with.
  Wide number(std::size_t at, std::size_t size) const {
    Wide value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value * 256 + list_[at + i];
    return value;
  }

  bool inside(Wide begin, Wide size) const { return begin + size <= list_.size(); }

  bool visit(Reference next) {
    if (next.depth > 32 || next.index >= count_) return false;
    Wide const offset =
        number(static_cast<std::size_t>(table_ + next.index * offsetSize_), static_cast<std::size_t>(offsetSize_));
    if (offset < 8 || offset >= list_.size()) return false;
    auto at = static_cast<std::size_t>(offset);
    unsigned const marker = list_[at++];
    unsigned const high = marker / 16;
    if (high <= 3) {
      static constexpr unsigned plain[] = {0x00, 0x08, 0x09, 0x10, 0x11, 0x12, 0x13, 0x20, 0x21, 0x22, 0x23, 0x33};
      for (unsigned const known : plain) {
        if (known == marker) return marker < 16 || inside(at, Wide{1} << marker % 16);
      }
      return false;
    }
    auto const length = takeLength(marker % 16, at);
    if (!length) return false;
    switch (high) {
      case 4:
      case 5:
        text_ += *length;
        return inside(at, *length);
      case 6:
        text_ += *length;
        return inside(at, 2 * *length);
      case 10:
      case 12:
        return push(at, *length, next.depth + 1);
      case 13:
        return push(at, 2 * *length, next.depth + 1);
      default:
        return false;
    }
  }

  std::optional<Wide> takeLength(unsigned low, std::size_t& at) const {
    if (low < 15) return low;
    if (!inside(at, 1) || list_[at] < 0x10 || list_[at] > 0x13) return {};
    std::size_t const size = std::size_t{1} << list_[at] % 16;
    if (!inside(++at, size)) return {};
    Wide const length = number(at, size);
    at += size;
    return length > 65'536 ? std::nullopt : std::optional(length);
  }

  bool push(std::size_t at, Wide count, int depth) {
    if (count > 2048 || !inside(at, count * referenceSize_)) return false;
    auto const size = static_cast<std::size_t>(referenceSize_);
    for (std::size_t i = 0; i < count; ++i) waiting_.push_back({number(at + i * size, size), depth});
    return true;
  }

  std::span<std::uint8_t const> const list_;
  Wide offsetSize_ = 0;
  Wide referenceSize_ = 0;
  Wide count_ = 0;
  Wide table_ = 0;
  Wide text_ = 0;
  std::vector<Reference> waiting_;
};

void check(std::span<std::uint8_t const> list) {
  bool const safe = isSafeBinaryPropertyList(list);
  expect(safe == SecondWalker(list).accepts(), "the check agrees with the second walker");
  if (!safe || !fitsXML(list)) return;
  auto const xml = propertyListXML({reinterpret_cast<char const*>(list.data()), list.size()});
  if (!xml) return;
  expect(xml->size() <= 262'144, "a list that is shown has at most 262,144 bytes");
  expect(isValidUTF8(*xml), "a list that is shown is UTF-8");
  expect(xmlValues(*xml) == BinaryValues(list).told(), "a list that is shown has the values of the binary one");
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // The name is always right: nothing else comes here.
  std::string list(data, data + size);
  list.replace(0, 8, "bplist00");
  tolva::check({reinterpret_cast<std::uint8_t const*>(list.data()), list.size()});
  return 0;
}
