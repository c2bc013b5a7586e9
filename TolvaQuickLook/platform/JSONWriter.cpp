// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONWriter.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <vector>

#include "platform/Base64.hpp"
#include "platform/DoubleText.hpp"
#include "platform/JSONValue.hpp"

namespace tolva {
namespace {

/// For each byte of a string what follows the backslash: 0 if it stands as it is, 'u' for `\u00xx`.
constexpr std::array<char, 256> escapes = [] {
  std::array<char, 256> made{};
  for (std::size_t control = 0; control < 0x20; ++control) made[control] = 'u';
  made['\b'] = 'b';
  made['\f'] = 'f';
  made['\n'] = 'n';
  made['\r'] = 'r';
  made['\t'] = 't';
  made['"'] = '"';
  made['\\'] = '\\';
  made['/'] = '/';
  return made;
}();

char escapeOf(char byte) { return escapes[static_cast<unsigned char>(byte)]; }

void appendEscaped(std::string& out, char byte) {
  out += '\\';
  out += escapeOf(byte);
  if (escapeOf(byte) != 'u') return;
  out += "00";
  out += byte < 0x10 ? '0' : '1';
  out += "0123456789abcdef"[byte & 0xF];
}

void appendString(std::string& out, std::string_view text) {
  out += '"';
  std::size_t copied = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!escapeOf(text[i])) continue;
    out.append(text, copied, i - copied);
    appendEscaped(out, text[i]);
    copied = i + 1;
  }
  out.append(text, copied);
  out += '"';
}

template <class Integer>
void appendInteger(std::string& out, Integer value) {
  std::array<char, 20> digits;  // both -2^63 and 2^64 - 1 have 20 characters
  auto const written = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  out.append(digits.data(), written.ptr);
}

/// Writes a tree in a style.
class TreeText {
 public:
  explicit TreeText(JSONStyle style) : style_(style) {}

  void write(JSONValue const& value) {
    switch (value.kind()) {
      case JSONValue::Kind::null:
        out_ += "null";
        break;
      case JSONValue::Kind::boolean:
        out_ += *value.asBoolean() ? "true" : "false";
        break;
      case JSONValue::Kind::number:
        out_ += *value.asNumber();
        break;
      case JSONValue::Kind::string:
        appendString(out_, *value.asString());
        break;
      case JSONValue::Kind::array:
        writeArray(*value.asArray());
        break;
      case JSONValue::Kind::object:
        writeObject(*value.asObject());
        break;
    }
  }

  std::string take() { return std::move(out_); }

 private:
  void writeArray(JSONValue::Array const& items) {
    writeContainer('[', ']', items, [&](JSONValue const& item) { write(item); });
  }

  void writeObject(JSONValue::Object const& members) {
    if (!style_.sortedKeys) {
      writeContainer('{', '}', members, [&](JSONValue::Member const& member) { writeMember(member); });
    } else {
      writeContainer('{', '}', sorted(members), [&](JSONValue::Member const* member) { writeMember(*member); });
    }
  }

  static std::vector<JSONValue::Member const*> sorted(JSONValue::Object const& members) {
    std::vector<JSONValue::Member const*> order;
    order.reserve(members.size());
    for (auto const& member : members) order.push_back(&member);
    std::ranges::sort(order, {}, &JSONValue::Member::name);
    return order;
  }

  template <class Elements, class WriteElement>
  void writeContainer(char open, char close, Elements const& elements, WriteElement const& writeElement) {
    out_ += open;
    ++level_;
    bool follows = false;
    for (auto const& element : elements) {
      if (follows) out_ += ',';
      follows = true;
      breakLine();
      writeElement(element);
    }
    --level_;
    if (follows) breakLine();
    out_ += close;
  }

  void writeMember(JSONValue::Member const& member) {
    appendString(out_, member.name);
    out_ += style_.pretty ? " : " : ":";
    write(member.value);
  }

  void breakLine() {
    if (!style_.pretty) return;
    out_ += '\n';
    out_.append(2 * level_, ' ');
  }

  JSONStyle const style_;
  std::string out_;
  std::size_t level_ = 0;
};

}  // namespace

void JSONWriter::key(std::string_view name) {
  separate();
  appendString(out_, name);
  out_ += ':';
  follows_ = false;
}

void JSONWriter::null() {
  separate();
  out_ += "null";
}

void JSONWriter::writeReal(double real) {
  if (!std::isfinite(real)) throw JSONError("A number that is not finite has no JSON form.");
  separate();
  out_ += jsonNumberText(real);
}

void JSONWriter::value(std::string_view text) {
  separate();
  appendString(out_, text);
}

void JSONWriter::value(std::span<std::uint8_t const> bytes) { value(base64(bytes)); }

void JSONWriter::begin(char bracket) {
  separate();
  out_ += bracket;
  follows_ = false;
}

void JSONWriter::end(char bracket) {
  out_ += bracket;
  follows_ = true;
}

void JSONWriter::separate() {
  if (follows_) out_ += ',';
  follows_ = true;
}

void JSONWriter::writeBoolean(bool truth) {
  separate();
  out_ += truth ? "true" : "false";
}

void JSONWriter::writeSigned(std::int64_t whole) {
  separate();
  appendInteger(out_, whole);
}

void JSONWriter::writeUnsigned(std::uint64_t whole) {
  separate();
  appendInteger(out_, whole);
}

std::string writeJSON(JSONValue const& value, JSONStyle style) {
  TreeText text(style);
  text.write(value);
  return text.take();
}

}  // namespace tolva
