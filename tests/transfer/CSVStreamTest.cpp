// SPDX-License-Identifier: Apache-2.0
#include "transfer/CSVStream.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "platform/TaskCancellation.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/Repeated.hpp"
#include "support/TemporaryFolder.hpp"
#include "transfer/CSVByteMachine.hpp"
#include "transfer/CSVRowReader.hpp"

namespace tolva {
namespace {

using namespace std::literals;
using Rows = std::vector<std::vector<std::string>>;

Rows rowsOf(CSVStream& stream) {
  Rows rows;
  while (auto row = stream.next(noTask)) rows.push_back(std::move(*row));
  return rows;
}

Rows rowsOf(std::string_view text, CSVOptions const& options = {}, CSVLimits const& limits = {}) {
  TemporaryFolder const folder;
  CSVStream stream(folder.write("rows.csv", text), options, limits);
  return rowsOf(stream);
}

struct TextCase {
  char const* says;
  std::string_view text;
  Rows rows;
};

TextCase const texts[] = {
    {"an empty file has no row", "", {}},
    {"a blank line is a row of one empty field", "\n", {{""}}},
    {"blank lines are not skipped", "a\n\n\r\n\rb", {{"a"}, {""}, {""}, {""}, {"b"}}},
    {"the last line end may be missing", "a,b", {{"a", "b"}}},
    {"no empty row follows the last line end", "a,b\n", {{"a", "b"}}},
    {"a delimiter at the end leaves an empty field", "a,b,", {{"a", "b", ""}}},
    {"CR, LF and CR LF each end a row", "a\rb\nc\r\nd", {{"a"}, {"b"}, {"c"}, {"d"}}},
    {"LF CR is two ends", "a\n\rb", {{"a"}, {""}, {"b"}}},
    {"line ends inside quotes are kept byte for byte", "\"a\rb\nc\r\nd\"\n", {{"a\rb\nc\r\nd"}}},
    {"a delimiter inside quotes is text", "\"a,b\",c", {{"a,b", "c"}}},
    {"two quotes are an empty field", "\"\"", {{""}}},
    {"two quotes before a delimiter are too", "\"\",a", {{"", "a"}}},
    {"four quotes are one", "\"\"\"\"", {{"\""}}},
    {"a doubled quote inside quotes is one", "\"a\"\"b\"", {{"a\"b"}}},
    {"a quote inside an unquoted field is text", "ab\"c", {{"ab\"c"}}},
    {"and opens nothing", "ab\"c,d\"e\n", {{"ab\"c", "d\"e"}}},
    {"a blank before a quote makes it text", " \"a\"", {{" \"a\""}}},
    {"what follows a closing quote joins the field", "\"ab\"cd,e", {{"abcd", "e"}}},
    {"a later quote behind it is text", "\"ab\"c\"d\"\n", {{"abc\"d\""}}},
    {"a quoted field may end with the file", "\"abc\"", {{"abc"}}},
    {"a byte order mark stays",
     "\xEF\xBB\xBF"
     "a,b",
     {{"\xEF\xBB\xBF"
       "a",
       "b"}}},
    {"behind it a quote is text", "\xEF\xBB\xBF\"a\"", {{"\xEF\xBB\xBF\"a\""}}},
    {"NUL is text", "a\0b,\0"sv, {{"a\0b"s, "\0"s}}},
    {"rows may differ in length", "a\nb,c\nd,e,f\n", {{"a"}, {"b", "c"}, {"d", "e", "f"}}},
};

TEST(CSVStream, ReadsRows) {
  for (TextCase const& text : texts) {
    SCOPED_TRACE(text.says);
    EXPECT_EQ(rowsOf(text.text), text.rows);
  }
}

// Any input, any limits, any sizes of reads -------------------------------------------------------------

/// All rows, then the failure that ended them if there was one.
template <class Next>
Rows rowsAndFailure(Next&& next) {
  Rows rows;
  try {
    while (auto row = next()) rows.emplace_back(row->begin(), row->end());
    if (next()) rows.push_back({"a row behind the end"});
  } catch (DatabaseError const& error) {
    rows.push_back({"(failed)", error.detail});
  }
  return rows;
}

TEST(CSVStream, DoesWhatTheByteMachineDoes) {
  std::mt19937 random(1);  // NOLINT(*-msc51-cpp): the same inputs each time
  auto const below = [&random](std::size_t bound) { return random() % bound; };
  std::string_view const alphabets[] = {"a\",\n\r", "ab,;\"\"\r\n\xC3\xA9\xFF\0"sv,
                                        "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa,\n\""};
  std::uint8_t const delimiters[] = {',', ';', 'a', '"', '\r', '\n', 0xC3, 0};
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    auto const alphabet = alphabets[below(std::size(alphabets))];
    for (std::size_t length = below(round % 10 == 0 ? 300 : 30); length > 0; --length) {
      text += alphabet[below(alphabet.size())];
    }
    CSVOptions options;
    if (below(3) == 0) options.delimiter = delimiters[below(std::size(delimiters))];
    options.encoding = below(2) == 0 ? CSVEncoding::utf8 : CSVEncoding::latin1;
    auto const limit = [&](std::size_t most) {
      return below(2) == 0 ? CSVLimits::none : static_cast<std::int64_t>(below(most));
    };
    CSVLimits const limits{limit(4), limit(40), limit(50)};
    SCOPED_TRACE(testing::Message() << testing::PrintToString(text) << " round " << round);

    CSVByteMachine machine(text, options, limits);
    std::size_t at = 0;
    std::size_t const mostRead = 1 + below(40);
    CSVRowReader reader(
        [&](std::span<std::uint8_t> into) {
          std::size_t const size = std::min({into.size(), text.size() - at, 1 + below(mostRead)});
          std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(at), size, into.begin());
          at += size;
          return size;
        },
        options, limits);
    ASSERT_EQ(rowsAndFailure([&] { return reader.next(noTask); }), rowsAndFailure([&] { return machine.next(); }));
  }
}

}  // namespace
}  // namespace tolva
