// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/JSONError.hpp"

namespace tolva {

class JSONValue;

/// Appends one JSON document to a text, compact and with members in the order in which they are written.
///
/// Used by one thread. The caller calls in the order of the grammar: a `key` before each value in an object, an `end`
/// for each `begin`. Texts are valid UTF-8. The form of each value is fixed for ever, since users' files hold its
/// length and its digest: `"`, `\` and `/` stand behind a backslash; bytes below 0x20 are `\b \f \n \r \t` or `\u00xx`
/// in lower case; every other byte stands as it is; a double is its shortest text, without ".0".
class JSONWriter {
 public:
  /// `out` outlives the writer; what it holds already is left alone.
  explicit JSONWriter(std::string& out) : out_(out) {}
  JSONWriter(JSONWriter const&) = delete;
  JSONWriter& operator=(JSONWriter const&) = delete;

  // Containers -----------------------------------------------------------------------------------

  void beginObject() { begin('{'); }
  void key(std::string_view name);
  void endObject() { end('}'); }

  void beginArray() { begin('['); }
  void endArray() { end(']'); }

  // Values ---------------------------------------------------------------------------------------

  void null();
  void value(std::same_as<bool> auto truth) { writeBoolean(truth); }
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool> && !std::same_as<Integer, char>) void value(Integer whole) {
    if constexpr (std::unsigned_integral<Integer>) {
      writeUnsigned(whole);
    } else {
      writeSigned(whole);
    }
  }

  /// Throws `JSONError` unless `real` is finite.
  void value(std::same_as<double> auto real) { writeReal(real); }
  void value(std::string_view text);

  /// Bytes as base64 text.
  void value(std::span<std::uint8_t const> bytes);

 private:
  void begin(char bracket);
  void end(char bracket);
  void separate();
  void writeBoolean(bool truth);
  void writeReal(double real);
  void writeSigned(std::int64_t whole);
  void writeUnsigned(std::uint64_t whole);

  std::string& out_;
  bool follows_ = false;  // a value stands before in the same container
};

struct JSONStyle {
  bool sortedKeys = false;  // by the bytes of the names, on all levels
  bool pretty = false;      // two blanks a level and `"key" : value`; empty containers stay `[]` and `{}`
};

/// The text of a tree in the forms of `JSONWriter`; numbers are written with the literals that they hold. Any thread.
std::string writeJSON(JSONValue const& value, JSONStyle style = {});

}  // namespace tolva
