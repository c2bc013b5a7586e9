// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tolva {

/// One JSON value (RFC 8259) with all that it contains. A value.
///
/// A number is the text of its literal, so nothing of it is lost before somebody asks for an integer or a double. The
/// members of an object keep their order, and no two have the same name. A tree that was read is at most
/// `jsonDepthLimit` levels deep and may be walked by recursion; whoever builds one keeps to that depth.
class JSONValue {
 public:
  enum class Kind { null, boolean, number, string, array, object };

  struct Member;
  using Array = std::vector<JSONValue>;
  using Object = std::vector<Member>;

  // Making ---------------------------------------------------------------------------------------

  JSONValue();  // null

  static JSONValue null();
  static JSONValue boolean(bool value);
  static JSONValue integer(std::int64_t value);

  /// Throws `JSONError` unless `value` is finite.
  static JSONValue real(double value);

  /// `literal` is a number by JSON's grammar; it is not checked.
  static JSONValue number(std::string literal);
  static JSONValue string(std::string text);
  static JSONValue array(Array items);

  /// The names of `members` differ; this is not checked.
  static JSONValue object(Object members);

  // Looking inside ------------------------------------------------------------------------------

  Kind kind() const { return static_cast<Kind>(data_.index()); }
  bool isNull() const { return kind() == Kind::null; }

  // What the value holds, or null if it is of another kind.
  bool const* asBoolean() const { return std::get_if<bool>(&data_); }
  std::string const* asString() const { return std::get_if<std::string>(&data_); }
  Array const* asArray() const { return std::get_if<Array>(&data_); }
  Object const* asObject() const { return std::get_if<Object>(&data_); }

  /// A number's literal as it was written.
  std::string const* asNumber() const;

  /// A number that is whole and fits, however it is written: `5`, `5.0` and `0.5e1` are all 5.
  std::optional<std::int64_t> asInteger() const;

  /// A number as the nearest double, whole ones of any length included. None if that would be infinite.
  std::optional<double> asDouble() const;

  /// The value of the object's member `name`; null if there is none or this is no object.
  JSONValue const* member(std::string_view name) const;

  /// By literal and by order: `1` differs from `1.0`, and so do objects whose members stand in another order.
  bool operator==(JSONValue const& other) const;

 private:
  struct Number {
    std::string literal;
    bool operator==(Number const&) const = default;
  };

  using Data = std::variant<std::nullptr_t, bool, Number, std::string, Array, Object>;  // in the order of `Kind`

  explicit JSONValue(Data data);

  Data data_;
};

/// One member of an object.
struct JSONValue::Member {
  std::string name;
  JSONValue value;
  bool operator==(Member const&) const = default;
};

}  // namespace tolva
