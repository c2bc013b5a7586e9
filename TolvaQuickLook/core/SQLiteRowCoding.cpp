// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteRowCoding.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>
#include <variant>

#include "platform/Base64.hpp"
#include "platform/JSONWriter.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

// Writing ------------------------------------------------------------------------------------------

/// Appends one value. Each case is written whole, so that the frame around a payload costs one copy.
struct ValueWriter {
  std::string& out;

  void operator()(std::int64_t value) const { whole(R"({"integer":{"_0":)", value); }
  void operator()(LargeText marker) const { whole(R"({"largeText":{"_0":)", marker.bytes); }
  void operator()(LargeBlob marker) const { whole(R"({"largeBlob":{"_0":)", marker.bytes); }
  void operator()(double value) const {
    out += R"({"real":{"_0":)";
    if (std::isfinite(value)) {
      JSONWriter(out).value(value);
    } else {
      out += std::isnan(value) ? R"("NaN")" : value > 0 ? R"("Infinity")" : R"("-Infinity")";
    }
    out += "}}";
  }
  void operator()(std::string const& text) const {
    out += R"({"text":{"_0":)";
    JSONWriter(out).value(std::string_view(text));
    out += "}}";
  }
  void operator()(Bytes const& blob) const {
    out += R"({"blob":{"_0":)";
    JSONWriter(out).value(std::span<std::uint8_t const>(blob));
    out += "}}";
  }
  void operator()(Null) const { out += R"({"null":{}})"; }

 private:
  void whole(std::string_view frame, std::int64_t value) const {
    std::array<char, 20> digits;  // of -2^63
    auto const written = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    out += frame;
    out.append(digits.data(), written.ptr);
    out += "}}";
  }
};

// Reading ------------------------------------------------------------------------------------------

[[noreturn]] void refuse() { throw JSONError("This is no coded row."); }

/// Takes a coded row apart from its front.
class RowReader {
 public:
  explicit RowReader(std::string_view coded) : rest_(coded) {}

  std::vector<SQLiteValue> row() {
    std::vector<SQLiteValue> row;
    require("[");
    if (!take("]")) {
      do {
        row.push_back(value());
      } while (take(","));
      require("]");
    }
    if (!rest_.empty()) refuse();
    return row;
  }

 private:
  SQLiteValue value() {
    if (take(R"({"integer":{"_0":)")) return framed(SQLiteValue::integer(number<std::int64_t>()));
    if (take(R"({"text":{"_0":)")) return framed(SQLiteValue::text(text()));
    if (take(R"({"null":{}})")) return SQLiteValue::null();
    if (take(R"({"real":{"_0":)")) return framed(SQLiteValue::real(real()));
    if (take(R"({"largeText":{"_0":)")) return framed(SQLiteValue::largeText(number<std::int64_t>()));
    if (take(R"({"largeBlob":{"_0":)")) return framed(SQLiteValue::largeBlob(number<std::int64_t>()));
    if (take(R"({"blob":{"_0":)")) return framed(SQLiteValue::blob(bytes()));
    refuse();
  }

  SQLiteValue framed(SQLiteValue value) {
    require("}}");
    return value;
  }

  template <class Number>
  Number number() {
    Number value{};
    auto const [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (error != std::errc()) refuse();
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return value;
  }

  double real() {
    if (take(R"("Infinity")")) return std::numeric_limits<double>::infinity();
    if (take(R"("-Infinity")")) return -std::numeric_limits<double>::infinity();
    if (take(R"("NaN")")) return std::numeric_limits<double>::quiet_NaN();
    std::string_view const digits = rest_.substr(rest_.starts_with('-') ? 1 : 0);
    if (digits.empty() || digits.front() < '0' || digits.front() > '9') refuse();  // `from_chars` reads "inf" and "nan"
    return number<double>();
  }

  std::string text() {
    require("\"");
    std::string text;
    for (;;) {
      std::size_t const plain = rest_.find_first_of("\"\\");
      if (plain == rest_.npos) refuse();
      text.append(rest_, 0, plain);
      bool const ends = rest_[plain] == '"';
      rest_.remove_prefix(plain + 1);
      if (ends) return text;
      text += escaped();
    }
  }

  /// The character behind a backslash.
  char escaped() {
    if (take("u00")) return control();
    if (rest_.empty()) refuse();
    char const c = rest_.front();
    rest_.remove_prefix(1);
    switch (c) {
      case '"':
      case '\\':
      case '/':
        return c;
      case 'b':
        return '\b';
      case 'f':
        return '\f';
      case 'n':
        return '\n';
      case 'r':
        return '\r';
      case 't':
        return '\t';
      default:
        refuse();
    }
  }

  char control() {
    unsigned value = 0;
    auto const [end, error] =
        std::from_chars(rest_.data(), rest_.data() + std::min<std::size_t>(rest_.size(), 2), value, 16);
    if (error != std::errc() || end != rest_.data() + 2 || value >= 0x20) refuse();
    rest_.remove_prefix(2);
    return static_cast<char>(value);
  }

  Bytes bytes() {
    std::optional<Bytes> bytes = bytesFromBase64(text());
    if (!bytes) refuse();
    return *std::move(bytes);
  }

  bool take(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }

  void require(std::string_view expected) {
    if (!take(expected)) refuse();
  }

  std::string_view rest_;
};

}  // namespace

void encodeRow(std::span<SQLiteValue const> row, std::string& out) {
  out += '[';
  for (SQLiteValue const& value : row) {
    if (&value != row.data()) out += ',';
    std::visit(ValueWriter{out}, value.payload());
  }
  out += ']';
}

std::vector<SQLiteValue> decodeRow(std::string_view coded) {
  if (!isValidUTF8(coded)) refuse();
  return RowReader(coded).row();
}

}  // namespace tolva
