// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/CSVOptions.hpp"
#include "transfer/CSVStream.hpp"

namespace tolva {

/// The machine of `CSVStream`, fed by whatever reads. Used by one thread at a time.
///
/// The rows are those of a machine that takes one byte after the other, and so is the failure that comes first. This
/// one takes a run of ordinary bytes at once and asks of each limit which of the run's bytes would pass it. A field
/// stays in the buffer where it was read; what follows a quote that is dropped moves up to it.
class CSVRowReader {
 public:
  /// Fills the front of the bytes and returns how many it filled; 0 is the end of the input.
  using Read = std::function<std::size_t(std::span<std::uint8_t>)>;

  CSVRowReader(Read read, CSVOptions const& options, CSVLimits const& limits);

  /// The next row, whose views hold until the next call; none at the end of the input.
  std::optional<std::span<std::string_view const>> next(std::stop_token const& task);

 private:
  enum class FieldEnd { field, row };  // what ended with the field

  FieldEnd readField(std::stop_token const& task);
  void readQuoted(std::stop_token const& task);
  FieldEnd endField(FieldEnd end);
  void decodeLatin1(std::stop_token const& task);
  void forgetLastRow();

  std::size_t stopByte();
  bool more(std::stop_token const& task) { return at_ < end_ || refill(task); }
  bool refill(std::stop_token const& task);
  void makeRoom();

  void takeIntoRow();
  void takeIntoField(std::size_t bytes);
  std::int64_t fieldLeft() const { return limits_.fieldBytes - static_cast<std::int64_t>(fieldEnd_ - fieldBegin_); }
  [[noreturn]] void failField() const;

  Read const read_;
  CSVOptions const options_;
  CSVLimits const limits_;

  std::unique_ptr<char[]> buffer_;  // the row so far and the rest of what was read last; behind it a block of zeros
  std::size_t capacity_ = 0;
  std::size_t rowBegin_ = 0;    // places in the buffer: of the row,
  std::size_t fieldBegin_ = 0;  // of the field so far, without its quotes,
  std::size_t fieldEnd_ = 0;
  std::size_t at_ = 0;   // of the next byte
  std::size_t end_ = 0;  // and behind the last
  bool ended_ = false;   // the input has no more

  std::int64_t rowLeft_ = 0;  // the bytes that the row may still take
  bool mayBeHigh_ = false;    // a byte above 127 may stand in the field, in Latin-1 in the row
  std::vector<std::string_view> fields_;
  std::string decoded_;  // what the fields of a row in Latin-1 are in UTF-8
};

}  // namespace tolva
