// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/describe.hpp>
#include <boost/mp11/algorithm.hpp>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Bytes.hpp"
#include "platform/JSONError.hpp"
#include "platform/JSONValue.hpp"
#include "platform/JSONWriter.hpp"
#include "platform/UUID.hpp"

namespace tolva {

/// How `T` stands in JSON: `write` appends one value, `read` makes a `T` of one. `key` is where the value was found,
/// for the error's sentence; it is empty for a value that stands alone.
///
/// A record has a form as soon as its fields are listed, in the order in which they are written. The list stands behind
/// the record at namespace scope, never inside it:
///
///     struct Point {
///       double x;
///       std::optional<std::string> label;
///     };
///     BOOST_DESCRIBE_STRUCT(Point, (), (x, label))
///
/// The keys are the names of the fields. An empty optional field is left out; an absent or null one reads as empty.
/// Unknown keys are ignored and every other key must be there. A type that is no plain record brings its own
/// `void encode(JSONWriter&) const` and `static T decode(JSONValue const&)`; for one that can have no members, such as
/// an enumeration, `JSONForm` is specialised.
template <class T>
struct JSONForm;

/// Appends `value` to a document that is being written. Throws `JSONError` on a double that is not finite.
template <class T>
void encodeJSON(T const& value, JSONWriter& out) {
  JSONForm<T>::write(value, out);
}

/// The document that holds `value` alone.
template <class T>
std::string encodeJSON(T const& value) {
  std::string text;
  JSONWriter out(text);
  encodeJSON(value, out);
  return text;
}

/// Makes a `T` of what was read. Throws `JSONError` that names a missing key, or the key whose value is of another type
/// or out of range.
template <class T>
T decodeJSON(JSONValue const& value) {
  return JSONForm<T>::read(value, /*key=*/{});
}

/// Ends a decoding: the value of `key` is not `expected`, which completes the sentence "… is not a …".
[[noreturn]] void refuseJSON(std::string_view key, std::string_view expected);

[[noreturn]] void refuseMissingKey(std::string_view key);

// Plain values -----------------------------------------------------------------------------------

template <>
struct JSONForm<bool> {
  static void write(bool value, JSONWriter& out) { out.value(value); }
  static bool read(JSONValue const& value, std::string_view key);
};

template <std::integral T>
struct JSONForm<T> {
  static void write(T value, JSONWriter& out) { out.value(value); }
  static T read(JSONValue const& value, std::string_view key) {
    auto const whole = value.asInteger();
    if (!whole) refuseJSON(key, "whole number of at most 64 bits");
    if (!std::in_range<T>(*whole)) refuseJSON(key, "whole number in its range");
    return static_cast<T>(*whole);
  }
};

/// A whole literal reads as a double too: 5.0 is written as `5`.
template <>
struct JSONForm<double> {
  static void write(double value, JSONWriter& out) { out.value(value); }
  static double read(JSONValue const& value, std::string_view key);
};

template <>
struct JSONForm<std::string> {
  static void write(std::string const& value, JSONWriter& out) { out.value(value); }
  static std::string read(JSONValue const& value, std::string_view key);
};

/// Base64 text.
template <>
struct JSONForm<Bytes> {
  static void write(Bytes const& value, JSONWriter& out) { out.value(value); }
  static Bytes read(JSONValue const& value, std::string_view key);
};

/// Upper-case text; either case is read.
template <>
struct JSONForm<UUID> {
  static void write(UUID const& value, JSONWriter& out) { out.value(value.text()); }
  static UUID read(JSONValue const& value, std::string_view key);
};

/// Seconds since 2001-01-01T00:00:00Z as a double. What was read is written again with the same digits, as long as its
/// double is no finer than a nanosecond, which holds from four months off the epoch.
template <>
struct JSONForm<std::chrono::system_clock::time_point> {
  static void write(std::chrono::system_clock::time_point value, JSONWriter& out);
  static std::chrono::system_clock::time_point read(JSONValue const& value, std::string_view key);
};

// Containers -------------------------------------------------------------------------------------

template <class T>
struct JSONForm<std::vector<T>> {
  static void write(std::vector<T> const& items, JSONWriter& out) {
    out.beginArray();
    for (T const& item : items) encodeJSON(item, out);
    out.endArray();
  }

  static std::vector<T> read(JSONValue const& value, std::string_view key) {
    auto const* const coded = value.asArray();
    if (!coded) refuseJSON(key, "list");
    std::vector<T> items;
    items.reserve(coded->size());
    for (auto const& item : *coded) items.push_back(JSONForm<T>::read(item, key));
    return items;
  }
};

template <class T>
struct JSONForm<std::map<std::string, T>> {
  static void write(std::map<std::string, T> const& entries, JSONWriter& out) {
    out.beginObject();
    for (auto const& [name, entry] : entries) {
      out.key(name);
      encodeJSON(entry, out);
    }
    out.endObject();
  }

  static std::map<std::string, T> read(JSONValue const& value, std::string_view key) {
    auto const* const members = value.asObject();
    if (!members) refuseJSON(key, "record");
    std::map<std::string, T> entries;
    for (auto const& [name, entry] : *members) entries.emplace(name, JSONForm<T>::read(entry, name));
    return entries;
  }
};

/// Null when empty; as the field of a record it is left out instead.
template <class T>
struct JSONForm<std::optional<T>> {
  static void write(std::optional<T> const& value, JSONWriter& out) {
    if (value) {
      encodeJSON(*value, out);
    } else {
      out.null();
    }
  }

  static std::optional<T> read(JSONValue const& value, std::string_view key) {
    if (value.isNull()) return {};
    return JSONForm<T>::read(value, key);
  }
};

// Records ----------------------------------------------------------------------------------------

/// A type that brings its own form.
template <class T>
concept JSONCoded = requires(T const& value, JSONWriter& out, JSONValue const& coded) {
  value.encode(out);
  { T::decode(coded) } -> std::same_as<T>;
};

template <JSONCoded T>
struct JSONForm<T> {
  static void write(T const& value, JSONWriter& out) { value.encode(out); }
  static T read(JSONValue const& value, std::string_view) { return T::decode(value); }
};

/// One field of a record: its key with its value.
template <class T>
struct JSONField {
  static void write(std::string_view key, T const& field, JSONWriter& out) {
    out.key(key);
    encodeJSON(field, out);
  }

  static T read(std::string_view key, JSONValue const& record) {
    auto const* const value = record.member(key);
    if (!value) refuseMissingKey(key);
    return JSONForm<T>::read(*value, key);
  }
};

template <class T>
struct JSONField<std::optional<T>> {
  static void write(std::string_view key, std::optional<T> const& field, JSONWriter& out) {
    if (field) JSONField<T>::write(key, *field, out);
  }

  static std::optional<T> read(std::string_view key, JSONValue const& record) {
    auto const* const value = record.member(key);
    if (!value) return {};
    return JSONForm<std::optional<T>>::read(*value, key);
  }
};

template <class T>
concept DescribedRecord = std::is_class_v<T> && boost::describe::has_describe_members<T>::value && !JSONCoded<T>;

template <DescribedRecord T>
struct JSONForm<T> {
  static void write(T const& record, JSONWriter& out) {
    out.beginObject();
    eachField(
        [&]<class Field>(char const* name, Field T::*field) { JSONField<Field>::write(name, record.*field, out); });
    out.endObject();
  }

  static T read(JSONValue const& value, std::string_view key) {
    if (!value.asObject()) refuseJSON(key, "record");
    T record{};
    eachField(
        [&]<class Field>(char const* name, Field T::*field) { record.*field = JSONField<Field>::read(name, value); });
    return record;
  }

 private:
  template <class Visit>
  static void eachField(Visit const& visit) {
    using Fields = boost::describe::describe_members<T, boost::describe::mod_any_access>;
    boost::mp11::mp_for_each<Fields>([&](auto field) { visit(field.name, field.pointer); });
  }
};

}  // namespace tolva
