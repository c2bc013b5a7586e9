// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <string_view>
#include <variant>

#include "core/SQLiteValue.hpp"
#include "platform/JSONCodec.hpp"

namespace tolva {
namespace {

/// Writes the payload of a case as the only member of its record.
struct PayloadWriter {
  JSONWriter& out;

  void operator()(Null) const {}
  void operator()(LargeText marker) const { (*this)(marker.bytes); }
  void operator()(LargeBlob marker) const { (*this)(marker.bytes); }
  void operator()(auto const& payload) const {
    out.key("_0");
    encodeJSON(payload, out);
  }
};

template <class Payload>
Payload payloadOf(JSONValue const& record) {
  return JSONField<Payload>::read("_0", record);
}

struct Case {
  std::string_view key;
  SQLiteValue (*decode)(JSONValue const& record);
};

constexpr std::array<Case, 7> cases{{
    // in the order of `SQLiteValue::Payload`
    {"integer", [](JSONValue const& record) { return SQLiteValue::integer(payloadOf<std::int64_t>(record)); }},
    {"real", [](JSONValue const& record) { return SQLiteValue::real(payloadOf<double>(record)); }},
    {"text", [](JSONValue const& record) { return SQLiteValue::text(payloadOf<std::string>(record)); }},
    {"blob", [](JSONValue const& record) { return SQLiteValue::blob(payloadOf<Bytes>(record)); }},
    {"largeText", [](JSONValue const& record) { return SQLiteValue::largeText(payloadOf<std::int64_t>(record)); }},
    {"largeBlob", [](JSONValue const& record) { return SQLiteValue::largeBlob(payloadOf<std::int64_t>(record)); }},
    {"null", [](JSONValue const&) { return SQLiteValue::null(); }},
}};
static_assert(cases.size() == std::variant_size_v<SQLiteValue::Payload>);

}  // namespace

void SQLiteValue::encode(JSONWriter& out) const {
  out.beginObject();
  out.key(cases[payload_.index()].key);
  out.beginObject();
  std::visit(PayloadWriter{out}, payload_);
  out.endObject();
  out.endObject();
}

SQLiteValue SQLiteValue::decode(JSONValue const& coded) {
  if (!coded.asObject()) refuseJSON("", "record");
  Case const* found = nullptr;
  int known = 0;
  for (Case const& one : cases) {
    if (!coded.member(one.key)) continue;
    found = &one;
    ++known;
  }
  if (known != 1) throw JSONError("Invalid number of keys found, expected one.");
  auto const& record = *coded.member(found->key);
  if (!record.asObject()) refuseJSON(found->key, "record");
  return found->decode(record);
}

}  // namespace tolva
