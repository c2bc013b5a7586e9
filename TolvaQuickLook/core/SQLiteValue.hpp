// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/Bytes.hpp"
#include "platform/Export.hpp"

namespace tolva {

class JSONValue;
class JSONWriter;

/// Marks a TEXT that was too large to carry; only its length is known.
struct LargeText {
  std::int64_t bytes;
  bool operator==(LargeText const&) const = default;
};

/// Marks a BLOB that was not read; only its length is known.
struct LargeBlob {
  std::int64_t bytes;
  bool operator==(LargeBlob const&) const = default;
};

/// SQL NULL.
struct Null {
  bool operator==(Null const&) const = default;
};

/// One SQL cell. A value.
///
/// `largeText` and `largeBlob` are deferred: they can be shown and counted, never bound to a statement. Equality is by
/// case and payload, so `integer(1)` differs from `real(1)` and NaN from itself.
class TOLVA_EXPORT SQLiteValue {
 public:
  using Payload = std::variant<std::int64_t, double, std::string, Bytes, LargeText, LargeBlob, Null>;

  SQLiteValue() : payload_(Null{}) {}
  SQLiteValue(Null) : payload_(Null{}) {}
  template <std::integral Integer>
  requires(std::signed_integral<Integer> || sizeof(Integer) < sizeof(std::int64_t)) SQLiteValue(Integer value)
      : payload_(std::int64_t{value}) {}
  SQLiteValue(bool) = delete;  // SQLite has no booleans, and a character is no number
  SQLiteValue(char) = delete;
  SQLiteValue(std::nullptr_t) = delete;
  template <std::floating_point Real>
  SQLiteValue(Real value) : payload_(double{value}) {}
  SQLiteValue(std::string text) : payload_(std::move(text)) {}
  SQLiteValue(std::string_view text) : payload_(std::string(text)) {}
  SQLiteValue(char const* text) : payload_(std::string(text)) {}
  SQLiteValue(Bytes blob) : payload_(std::move(blob)) {}
  SQLiteValue(LargeText marker) : payload_(marker) {}
  SQLiteValue(LargeBlob marker) : payload_(marker) {}

  static SQLiteValue integer(std::int64_t value) { return value; }
  static SQLiteValue real(double value) { return value; }
  static SQLiteValue text(std::string text) { return SQLiteValue(std::move(text)); }
  static SQLiteValue blob(Bytes bytes) { return SQLiteValue(std::move(bytes)); }
  static SQLiteValue largeText(std::int64_t bytes) { return LargeText{bytes}; }
  static SQLiteValue largeBlob(std::int64_t bytes) { return LargeBlob{bytes}; }
  static SQLiteValue null() { return Null{}; }

  /// Turns what a person typed into a cell into a value, by the column's declared type (`affinity`). Never fails: what
  /// is no finite number stays text, and so does everything in a text, blob or untyped column.
  static SQLiteValue input(std::string text, std::string_view affinity);

  // Looking inside ------------------------------------------------------------------------------

  Payload const& payload() const { return payload_; }

  // The payload, or null for another case.
  std::int64_t const* asInteger() const { return std::get_if<std::int64_t>(&payload_); }
  double const* asReal() const { return std::get_if<double>(&payload_); }
  std::string const* asText() const { return std::get_if<std::string>(&payload_); }
  Bytes const* asBlob() const { return std::get_if<Bytes>(&payload_); }
  LargeText const* asLargeText() const { return std::get_if<LargeText>(&payload_); }
  LargeBlob const* asLargeBlob() const { return std::get_if<LargeBlob>(&payload_); }
  bool isNull() const { return std::holds_alternative<Null>(payload_); }

  bool isDeferred() const { return asLargeText() || asLargeBlob(); }

  /// What the value is charged in memory limits: 32, and the bytes of a text or blob that is held whole.
  std::int64_t memorySize() const {
    if (auto const* const text = asText()) return 32 + static_cast<std::int64_t>(text->size());
    if (auto const* const blob = asBlob()) return 32 + static_cast<std::int64_t>(blob->size());
    return 32;
  }

  /// The short text for a grid or a summary.
  std::string display() const;

  bool operator==(SQLiteValue const&) const = default;

  // The coded form: one key named after the case, `{"integer":{"_0":5}}`, `{"null":{}}`, blobs in base64 -----------

  void encode(JSONWriter& out) const;

  /// Throws `JSONError`; a record with no known key, or more than one, is a type mismatch.
  static SQLiteValue decode(JSONValue const& coded);

 private:
  Payload payload_;
};

}  // namespace tolva
