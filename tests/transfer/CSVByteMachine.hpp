// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/DatabaseError.hpp"
#include "platform/UTF8.hpp"
#include "transfer/CSVStream.hpp"

namespace tolva {

/// The reader of delimited text as it is defined: one byte after the other, each limit asked before and after each.
/// `CSVStream` must give the same rows and the same failure, however it gets there. What is valid UTF-8 both ask
/// `isValidUTF8`, which has tests of its own.
class CSVByteMachine {
 public:
  CSVByteMachine(std::string_view input, CSVOptions const& options, CSVLimits const& limits)
      : input_(input), options_(options), limits_(limits) {}

  std::optional<std::vector<std::string>> next() {
    std::string field;
    std::vector<std::string> row;
    bool inQuotes = false;
    std::int64_t count = 0;
    if (ended_) return std::nullopt;
    std::optional<std::uint8_t> const first = read();
    std::optional<std::uint8_t> byte = first;
    while (byte) {
      if (limits_.rowBytes < count + 1 || static_cast<std::int64_t>(row.size()) >= limits_.columns) {
        throw DatabaseError("CSV row exceeds its field/byte limit.");
      }
      if (inQuotes) {
        if (*byte != '"') {
          field += static_cast<char>(*byte);
        } else if (auto const after = read(); !after) {
          inQuotes = false;
        } else if (*after == '"') {
          field += '"';
        } else {
          pending_ = after;
          inQuotes = false;
        }
      } else if (*byte == '"' && field.empty()) {
        inQuotes = true;
      } else if (*byte == options_.delimiter) {
        row.push_back(decoded(field));
        field.clear();
      } else if (*byte == '\n') {
        row.push_back(decoded(field));
        return row;
      } else if (*byte == '\r') {
        if (auto const after = read(); after && *after != '\n') pending_ = after;
        row.push_back(decoded(field));
        return row;
      } else {
        field += static_cast<char>(*byte);
      }
      if (static_cast<std::int64_t>(field.size()) > limits_.fieldBytes) {
        throw DatabaseError("A CSV field exceeds the " + std::to_string(limits_.fieldBytes) + "-byte import limit.");
      }
      byte = read();
      ++count;
    }
    if (inQuotes) throw DatabaseError("The CSV contains an unterminated quoted field.");
    if (!first && row.empty()) return std::nullopt;
    row.push_back(decoded(field));
    return row;
  }

 private:
  std::optional<std::uint8_t> read() {
    if (pending_) {
      auto const byte = pending_;
      pending_.reset();
      return byte;
    }
    if (at_ == input_.size()) {
      ended_ = true;
      return std::nullopt;
    }
    return static_cast<std::uint8_t>(input_[at_++]);
  }

  std::string decoded(std::string const& field) const {
    if (options_.encoding == CSVEncoding::utf8) {
      if (!isValidUTF8(field)) throw DatabaseError("The CSV encoding is invalid. Choose the matching encoding.");
      return field;
    }
    std::string text;
    for (char const byte : field) {
      auto const character = static_cast<std::uint8_t>(byte);
      if (character < 0x80) {
        text += byte;
      } else {
        text += static_cast<char>(0xC0 + character / 64);
        text += static_cast<char>(0x80 + character % 64);
      }
    }
    return text;
  }

  std::string_view const input_;
  CSVOptions const options_;
  CSVLimits const limits_;
  std::size_t at_ = 0;
  std::optional<std::uint8_t> pending_;
  bool ended_ = false;
};

}  // namespace tolva
