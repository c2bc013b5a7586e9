// SPDX-License-Identifier: Apache-2.0
// What a property list holds, told once from its binary form and once from its XML form: one line for each value or
// end of a container, in the same words, so that the two can be compared.
#pragma once

#include <fmt/format.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "fuzz/Expect.hpp"

namespace tolva {

/// A zero has lost its sign in XML, and that is known.
inline std::string realLine(double value) {
  if (std::isnan(value)) return "real nan\n";
  return fmt::format("real {}\n", value == 0 ? 0.0 : value);
}

/// Tells a binary list that the check has let through.
class BinaryValues {
 public:
  explicit BinaryValues(std::span<std::uint8_t const> list)
      : list_(list), end_(list.size() - 32), top_(number(end_ + 16, 8)), table_(number(end_ + 24, 8)) {}

  std::string told() {
    tell(top_);
    return std::move(lines_);
  }

 private:
  std::uint64_t number(std::size_t at, std::size_t width) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = value * 256 + list_[at + i];
    return value;
  }

  std::uint64_t reference(std::size_t begin, std::size_t index) const {
    std::size_t const width = list_[end_ + 7];
    return number(begin + index * width, width);
  }

  void tell(std::uint64_t object) {
    std::size_t const width = list_[end_ + 6];
    std::size_t at = number(table_ + object * width, width);
    unsigned const kind = list_[at] / 16;
    std::size_t size = list_[at++] % 16;
    if (kind >= 4 && size == 15) {
      std::size_t const lengthWidth = std::size_t{1} << list_[at++] % 16;
      size = number(at, lengthWidth);
      at += lengthWidth;
    }
    switch (kind) {
      case 0:
        lines_ += size == 8 ? "false\n" : size == 9 ? "true\n" : "null\n";
        return;
      case 1:
        return tellInteger(number(at, std::size_t{1} << size), size);
      case 2:
        lines_ += size == 3   ? realLine(std::bit_cast<double>(number(at, 8)))
                  : size == 2 ? realLine(std::bit_cast<float>(static_cast<std::uint32_t>(number(at, 4))))
                              : "short real\n";
        return;
      case 3:
        return tellDate(std::bit_cast<double>(number(at, 8)));
      case 4:
        lines_ += "data ";
        for (std::size_t i = 0; i < size; ++i) lines_ += fmt::format("{:02x}", list_[at + i]);
        lines_ += '\n';
        return;
      case 5:
      case 6:
        lines_ += "string " +
                  (kind == 5 ? std::string(list_.begin() + static_cast<std::ptrdiff_t>(at),
                                           list_.begin() + static_cast<std::ptrdiff_t>(at + size))
                             : utf8(at, size)) +
                  '\n';
        return;
      case 13:
        lines_ += "dict\n";
        for (std::size_t i = 0; i < size; ++i) {
          tell(reference(at, i));
          tell(reference(at, size + i));
        }
        lines_ += "end\n";
        return;
      default:
        lines_ += "array\n";
        for (std::size_t i = 0; i < size; ++i) tell(reference(at, i));
        lines_ += "end\n";
    }
  }

  void tellInteger(std::uint64_t value, std::size_t power) {
    lines_ +=
        power == 3 ? fmt::format("integer {}\n", static_cast<std::int64_t>(value)) : fmt::format("integer {}\n", value);
  }

  void tellDate(double seconds) {
    using namespace std::chrono;
    auto const time = sys_days(2001y / January / 1) + std::chrono::seconds(static_cast<std::int64_t>(seconds));
    auto const day = floor<days>(time);
    year_month_day const date(day);
    hh_mm_ss const clock(time - day);
    lines_ += fmt::format("date {:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z\n", static_cast<int>(date.year()),
                          static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                          clock.minutes().count(), clock.seconds().count());
  }

  std::string utf8(std::size_t at, std::size_t units) const {
    std::string text;
    auto const addTail = [&](std::uint32_t code, int shift) {
      for (; shift >= 0; shift -= 6) text += static_cast<char>(0x80 | (code >> shift & 0x3F));
    };
    for (std::size_t i = 0; i < units; ++i) {
      auto code = static_cast<std::uint32_t>(number(at + 2 * i, 2));
      if (code >= 0xD800 && code < 0xE000) {
        ++i;
        code = 0x10000 + (code - 0xD800) * 1024 + static_cast<std::uint32_t>(number(at + 2 * i, 2)) - 0xDC00;
      }
      if (code < 0x80) {
        text += static_cast<char>(code);
      } else if (code < 0x800) {
        text += static_cast<char>(0xC0 | code >> 6);
        addTail(code, 0);
      } else if (code < 0x10000) {
        text += static_cast<char>(0xE0 | code >> 12);
        addTail(code, 6);
      } else {
        text += static_cast<char>(0xF0 | code >> 18);
        addTail(code, 12);
      }
    }
    return text;
  }

  std::span<std::uint8_t const> const list_;
  std::size_t const end_;
  std::uint64_t const top_;
  std::uint64_t const table_;
  std::string lines_;
};

inline std::string withoutReferences(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    std::size_t taken = 1;
    char character = text[0];
    for (auto const& [name, meant] : {std::pair("&lt;", '<'), std::pair("&gt;", '>'), std::pair("&amp;", '&')}) {
      if (!text.starts_with(name)) continue;
      character = meant;
      taken = std::string_view(name).size();
    }
    result += character;
    text.remove_prefix(taken);
  }
  return result;
}

inline std::string hexFromBase64(std::string_view text) {
  static constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string hex;
  std::uint32_t bits = 0;
  int count = 0;
  for (char const c : text) {
    auto const digit = digits.find(c);
    if (digit == digits.npos) continue;  // blanks, and what fills the end
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    hex += fmt::format("{:02x}", bits >> count & 0xFF);
  }
  return hex;
}

/// Tells a list in the form that a writer of XML lists gives it: markup stands in no text.
inline std::string xmlValues(std::string_view xml) {
  std::string lines;
  xml.remove_prefix(xml.find("<plist version=\"1.0\">") + 21);
  for (auto open = xml.find('<'); open != xml.npos; open = xml.find('<')) {
    auto const close = xml.find('>', open);
    std::string_view const tag = xml.substr(open + 1, close - open - 1);
    xml.remove_prefix(close + 1);
    std::string_view const text = xml.substr(0, xml.find('<'));
    if (tag == "array" || tag == "dict" || tag == "true/" || tag == "false/") {
      lines += fmt::format("{}\n", tag.substr(0, tag.find('/')));
    } else if (tag == "/array" || tag == "/dict") {
      lines += "end\n";
    } else if (tag == "array/" || tag == "dict/") {
      lines += fmt::format("{}\nend\n", tag.substr(0, tag.size() - 1));
    } else if (tag == "string" || tag == "key") {
      lines += "string " + withoutReferences(text) + '\n';
    } else if (tag == "string/" || tag == "key/") {
      lines += "string \n";
    } else if (tag == "integer" || tag == "date") {
      lines += fmt::format("{} {}\n", tag, text);
    } else if (tag == "real") {
      lines += realLine(std::strtod(std::string(text).c_str(), nullptr));
    } else if (tag == "data") {
      lines += "data " + hexFromBase64(text) + '\n';
    } else {
      expect(tag.starts_with('/'), "a list that is shown has only elements of such lists");
    }
  }
  return lines;
}

}  // namespace tolva
