// SPDX-License-Identifier: Apache-2.0
#include "transfer/CSVRowReader.hpp"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <experimental/simd>  // of libstdc++ 11 or newer, which the build therefore needs
#include <utility>

#include "core/DatabaseError.hpp"
#include "platform/TaskCancellation.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

constexpr std::size_t readSize = 65'536;

/// As many bytes as the processor compares at once.
using Block = std::experimental::native_simd<std::uint8_t>;

[[noreturn]] void failRow() { throw DatabaseError("CSV row exceeds its field/byte limit."); }

/// Whether `capacity`, which a row of uncommon length has left, is far beyond what is in use.
constexpr bool isWaste(std::size_t capacity, std::size_t used) { return capacity / 4 > std::max(used, readSize); }

bool isHigh(char byte) { return static_cast<unsigned char>(byte) > 0x7F; }

}  // namespace

CSVRowReader::CSVRowReader(Read read, CSVOptions const& options, CSVLimits const& limits)
    : read_(std::move(read)), options_(options), limits_(limits) {}

std::optional<std::span<std::string_view const>> CSVRowReader::next(std::stop_token const& task) {
  forgetLastRow();
  rowBegin_ = fieldBegin_ = fieldEnd_ = at_;
  rowLeft_ = limits_.rowBytes;
  mayBeHigh_ = false;
  if (!more(task)) return std::nullopt;
  checkCancellation(task);
  while (readField(task) == FieldEnd::field) {
  }
  if (options_.encoding == CSVEncoding::latin1 && mayBeHigh_) decodeLatin1(task);
  return fields_;
}

void CSVRowReader::forgetLastRow() {
  if (isWaste(fields_.capacity(), fields_.size())) fields_.shrink_to_fit();
  if (isWaste(decoded_.capacity(), decoded_.size())) decoded_.shrink_to_fit();
  fields_.clear();
  decoded_.clear();
}

// Fields -------------------------------------------------------------------------------------------

CSVRowReader::FieldEnd CSVRowReader::readField(std::stop_token const& task) {
  fieldBegin_ = fieldEnd_ = at_;
  if (!more(task)) return endField(FieldEnd::row);
  // Asked of every byte, so it is enough to ask of a field's first, and an empty field at the input's end escapes.
  if (std::cmp_greater_equal(fields_.size(), limits_.columns)) failRow();
  if (buffer_[at_] == '"') readQuoted(task);
  do {
    takeIntoField(stopByte() - at_);
    if (at_ < end_) {
      takeIntoRow();
      char const stop = buffer_[at_++];
      if (stop == static_cast<char>(options_.delimiter)) return endField(FieldEnd::field);
      if (stop == '\r' && more(task) && buffer_[at_] == '\n') ++at_;  // which no limit counts
      return endField(FieldEnd::row);
    }
  } while (refill(task));
  return endField(FieldEnd::row);
}

/// From the quote that opens a field to the one that closes it. What follows that joins the same field.
void CSVRowReader::readQuoted(std::stop_token const& task) {
  mayBeHigh_ = true;  // nobody looks on the way
  takeIntoRow();
  fieldBegin_ = fieldEnd_ = ++at_;
  while (true) {
    if (!more(task)) throw DatabaseError("The CSV contains an unterminated quoted field.");
    auto const* const quote = static_cast<char const*>(std::memchr(&buffer_[at_], '"', end_ - at_));
    takeIntoField(quote ? static_cast<std::size_t>(quote - &buffer_[at_]) : end_ - at_);
    if (!quote) continue;
    takeIntoRow();
    ++at_;
    if (!more(task) || buffer_[at_] != '"') return;
    // Of a doubled quote the row counts the first and the field keeps one.
    if (fieldLeft() < 1) failField();
    buffer_[fieldEnd_++] = '"';
    ++at_;
  }
}

CSVRowReader::FieldEnd CSVRowReader::endField(FieldEnd end) {
  std::string_view const field(buffer_.get() + fieldBegin_, fieldEnd_ - fieldBegin_);
  if (mayBeHigh_ && options_.encoding == CSVEncoding::utf8) {
    if (!isValidUTF8(field)) throw DatabaseError("The CSV encoding is invalid. Choose the matching encoding.");
    mayBeHigh_ = false;
  }
  fields_.push_back(field);
  return end;
}

/// Latin-1 is the first 256 characters of Unicode: a byte above 127 is two in UTF-8.
void CSVRowReader::decodeLatin1(std::stop_token const& task) {
  std::size_t size = 0;
  for (std::string_view const field : fields_) {
    size += field.size() + static_cast<std::size_t>(std::count_if(field.begin(), field.end(), isHigh));
  }
  decoded_.reserve(size);  // so that no view is left behind
  for (std::string_view& field : fields_) {
    checkCancellation(task);
    std::size_t const begin = decoded_.size();
    for (char const byte : field) {
      auto const character = static_cast<unsigned char>(byte);
      if (isHigh(byte)) decoded_ += static_cast<char>(0xC0 | character >> 6);
      decoded_ += static_cast<char>(isHigh(byte) ? 0x80 | (character & 0x3F) : character);
    }
    field = {decoded_.data() + begin, decoded_.size() - begin};
  }
}

// Limits -------------------------------------------------------------------------------------------

/// Takes a byte that is no part of a field.
void CSVRowReader::takeIntoRow() {
  if (rowLeft_ < 1) failRow();
  --rowLeft_;
}

/// Takes a run of bytes. The limit that is passed first is told; by the same byte, the row's.
void CSVRowReader::takeIntoField(std::size_t bytes) {
  if (std::cmp_greater(bytes, std::min(rowLeft_, fieldLeft()))) rowLeft_ <= fieldLeft() ? failRow() : failField();
  if (fieldEnd_ != at_) std::memmove(&buffer_[fieldEnd_], &buffer_[at_], bytes);
  fieldEnd_ += bytes;
  at_ += bytes;
  rowLeft_ -= static_cast<std::int64_t>(bytes);
}

void CSVRowReader::failField() const {
  throw DatabaseError("A CSV field exceeds the " + std::to_string(limits_.fieldBytes) + "-byte import limit.");
}

// Bytes --------------------------------------------------------------------------------------------

/// The place of the next byte that ends a run outside quotes: the delimiter or a line end. A quote is none, since it
/// opens nothing but an empty field.
std::size_t CSVRowReader::stopByte() {
  assert(at_ >= end_ || end_ + Block::size() <= capacity_);
  Block const delimiter(options_.delimiter);
  Block const lineFeed(std::uint8_t{'\n'});
  Block const carriageReturn(std::uint8_t{'\r'});
  Block seen(std::uint8_t{0});
  std::size_t stop = end_;
  for (std::size_t at = at_; at < end_; at += Block::size()) {
    Block const block(reinterpret_cast<std::uint8_t const*>(&buffer_[at]), std::experimental::element_aligned);
    seen |= block;
    auto const stops = block == delimiter || block == lineFeed || block == carriageReturn;
    if (any_of(stops)) {
      stop = std::min(end_, at + static_cast<std::size_t>(find_first_set(stops)));
      break;
    }
  }
  if (any_of(seen > Block(std::uint8_t{0x7F}))) mayBeHigh_ = true;
  return stop;
}

/// Reads on; false at the end of the input.
bool CSVRowReader::refill(std::stop_token const& task) {
  if (ended_) return false;
  makeRoom();
  std::size_t const got = read_(std::span(reinterpret_cast<std::uint8_t*>(&buffer_[end_]), readSize));
  end_ += got;
  std::memset(&buffer_[end_], 0, Block::size());
  ended_ = got == 0;
  if (!ended_) checkCancellation(task);
  return !ended_;
}

/// Makes room for a read behind the row so far, which moves to the front. Room that a row of uncommon length has left
/// is given back.
void CSVRowReader::makeRoom() {
  std::size_t const kept = end_ - rowBegin_;
  std::size_t const needed = kept + readSize + Block::size();
  bool const fits = needed <= capacity_ && !isWaste(capacity_, needed);
  if (rowBegin_ == 0 && fits) return;
  std::size_t const capacity = fits ? capacity_ : 2 * needed;
  // Room that is not written to takes no memory yet, so it is not filled with zeros.
  auto other = fits ? nullptr : std::make_unique_for_overwrite<char[]>(capacity);
  char const* const from = buffer_.get() + rowBegin_;
  char* const to = other ? other.get() : buffer_.get();
  if (kept != 0) std::memmove(to, from, kept);
  for (std::string_view& field : fields_) field = {to + (field.data() - from), field.size()};
  for (std::size_t* const place : {&fieldBegin_, &fieldEnd_, &at_, &end_}) *place -= rowBegin_;
  rowBegin_ = 0;
  if (other) buffer_ = std::move(other);
  capacity_ = capacity;
}

}  // namespace tolva
