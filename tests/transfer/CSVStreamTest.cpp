// SPDX-License-Identifier: Apache-2.0
#include "transfer/CSVStream.hpp"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <random>
#include <stdexcept>

#include "core/SQLiteConnection.hpp"
#include "platform/SHA256.hpp"
#include "platform/TaskCancellation.hpp"
#include "support/Corpora.hpp"
#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/Repeated.hpp"
#include "support/SQLitePeer.hpp"
#include "support/Sanitizer.hpp"
#include "support/SystemFailure.hpp"
#include "support/TemporaryDatabase.hpp"
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

TEST(CSVStream, SaysNothingMoreAtTheEnd) {
  TemporaryFolder const folder;
  for (char const* const text : {"", "a", "a\n", "a\r", "\"a\""}) {
    SCOPED_TRACE(text);
    CSVStream stream(folder.write("rows.csv", text));
    rowsOf(stream);
    EXPECT_EQ(stream.next(noTask), std::nullopt);
    EXPECT_FALSE(stream.nextFields(noTask));
  }
}

TEST(CSVStream, SaysNothingMoreThoughTheFileGrows) {
  TemporaryFolder const folder;
  for (char const* const text : {"", "a", "a\n"}) {
    SCOPED_TRACE(text);
    auto const file = folder.write("rows.csv", text);
    CSVStream stream(file);
    rowsOf(stream);
    std::ofstream(file, std::ios::app) << "b\nc\n";
    EXPECT_EQ(stream.next(noTask), std::nullopt);
    EXPECT_FALSE(stream.nextFields(noTask));
  }
}

struct DelimiterCase {
  char const* says;
  char delimiter;
  std::string_view text;
  Rows rows;
};

DelimiterCase const delimiters[] = {
    {"a tab", '\t', "a,b\tc\n", {{"a,b", "c"}}},
    {"NUL", '\0', "a\0b\n"sv, {{"a", "b"}}},
    {"a line feed leaves CR and CR LF as line ends", '\n', "a\nb\rc\r\nd", {{"a", "b"}, {"c"}, {"d"}}},
    {"a carriage return ends a field before an LF", '\r', "a\rb\r\nc\n", {{"a", "b", ""}, {"c"}}},
    {"a quote ends a field that has begun, and opens an empty one", '"', "a\"\"b\"\n", {{"a", "b"}}},
    {"a letter", 'x', "axb\"xc\n", {{"a", "b\"", "c"}}},
};

TEST(CSVStream, TakesAnyByteForTheDelimiter) {
  for (DelimiterCase const& each : delimiters) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(rowsOf(each.text, {.delimiter = static_cast<std::uint8_t>(each.delimiter)}), each.rows);
  }
  // U+00E9 is C3 A9: cut in two, neither part is UTF-8.
  EXPECT_EQ(failureOf([] { rowsOf("\u00E9", {.delimiter = 0xC3}); }),
            DatabaseError("The CSV encoding is invalid. Choose the matching encoding."));
  EXPECT_EQ(rowsOf("\u00E9", {.delimiter = 0xC3, .encoding = CSVEncoding::latin1}), (Rows{{"", "\u00A9"}}));
}

TEST(CSVStream, ReadsEitherEncoding) {
  EXPECT_EQ(rowsOf("gr\xFC\xDF,\"\x80\"\"\xFF\"\nplain\n", {.encoding = CSVEncoding::latin1}),
            (Rows{{"gr\u00FC\u00DF", "\u0080\"\u00FF"}, {"plain"}}));
  EXPECT_EQ(rowsOf("gr\u00FC\u00DF,\"\u20AC\",\U0001F600\n"), (Rows{{"gr\u00FC\u00DF", "\u20AC", "\U0001F600"}}));
  EXPECT_EQ(rowsOf("\"\xC3\"\xA9\n"), (Rows{{"\u00E9"}})) << "a field is judged without its quotes";
  std::string everyByte;
  std::string everyCharacter;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte == ',' || byte == '\n' || byte == '\r') continue;
    everyByte += static_cast<char>(byte);
    if (byte > 127) everyCharacter += byte < 192 ? '\xC2' : '\xC3';
    everyCharacter += static_cast<char>(byte > 191 ? byte - 64 : byte);
  }
  EXPECT_EQ(rowsOf(everyByte, {.encoding = CSVEncoding::latin1}), (Rows{{everyCharacter}}));
}

TEST(CSVStream, FindsWhatIsNoTextWhereItIsReached) {
  TemporaryFolder const folder;
  for (std::string_view const wrong : {"\xFF", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\"\xFF\""}) {
    CSVStream stream(folder.write("rows.csv", "good\nb," + std::string(wrong)));
    EXPECT_EQ(stream.next(noTask), (std::vector{"good"s}));
    EXPECT_EQ(failureOf([&] { stream.next(noTask); }),
              DatabaseError("The CSV encoding is invalid. Choose the matching encoding."));
  }
}

TEST(CSVStream, RefusesAQuoteThatIsNeverClosed) {
  for (char const* const text : {"\"abc", "\"", "a\n\"b\nc\n", "\"a\"\"", "a,\"b,c\n"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(failureOf([&] { rowsOf(text); }), DatabaseError("The CSV contains an unterminated quoted field."));
  }
}

// Limits ------------------------------------------------------------------------------------------

DatabaseError const rowTooLong("CSV row exceeds its field/byte limit.");

struct LimitCase {
  char const* says;
  std::string_view text;
  CSVLimits limits;
  std::optional<DatabaseError> failure;
};

LimitCase const limitCases[] = {
    {"as many fields as a row may have", "a,b\na,b\n", {.columns = 2}, {}},
    {"one more", "a,b,c", {.columns = 2}, rowTooLong},
    {"one more, though it is empty", "a,b,\n", {.columns = 2}, rowTooLong},
    {"one more, left empty by the end of the file, is not seen", "a,b,", {.columns = 2}, {}},
    {"no field at all", "\n", {.columns = 0}, rowTooLong},
    {"no field in an empty file", "", {.columns = 0, .rowBytes = 0}, {}},
    {"as many bytes as a field may have", "abc,abc\nabc", {.fieldBytes = 3}, {}},
    {"one more", "abcd", {.fieldBytes = 3}, DatabaseError("A CSV field exceeds the 3-byte import limit.")},
    {"as many between quotes", "\"abc\",\"a\"\"c\",\"a\"bc\n", {.fieldBytes = 3}, {}},
    {"one more", "\"abcd\"", {.fieldBytes = 3}, DatabaseError("A CSV field exceeds the 3-byte import limit.")},
    {"one more that is a quote",
     "\"abc\"\"\"",
     {.fieldBytes = 3},
     DatabaseError("A CSV field exceeds the 3-byte import limit.")},
    {"one more behind the quotes",
     "\"abc\"d",
     {.fieldBytes = 3},
     DatabaseError("A CSV field exceeds the 3-byte import limit.")},
    {"bytes are those of the file",
     "\u00E9\u00E9",
     {.fieldBytes = 3},
     DatabaseError("A CSV field exceeds the 3-byte import limit.")},
    {"as many bytes as a row may have, its end counted", "ab,cd\nab,cd\n", {.rowBytes = 6}, {}},
    {"one more", "ab,cde\n", {.rowBytes = 6}, rowTooLong},
    {"the LF of CR LF is not counted", "ab,cd\r\nab,cd\r\n", {.rowBytes = 6}, {}},
    {"quotes are", "\"ab\"c\n", {.rowBytes = 6}, {}},
    {"so one more is too many", "\"abc\"c\n", {.rowBytes = 6}, rowTooLong},
    {"of a doubled quote one is", "\"\"\"b\"c\n", {.rowBytes = 6}, {}},
    {"but not two", "\"\"\"bc\"c\n", {.rowBytes = 6}, rowTooLong},
    {"without a line end the row is as long as it is", "ab,cde", {.rowBytes = 6}, {}},
    {"by the same byte the row's limit is told", "abcd", {.fieldBytes = 3, .rowBytes = 3}, rowTooLong},
    {"else the one that comes first",
     "abcdef",
     {.fieldBytes = 3, .rowBytes = 4},
     DatabaseError("A CSV field exceeds the 3-byte import limit.")},
    {"before the encoding of a field that has not ended", "\xFF\xFF", {.rowBytes = 1}, rowTooLong},
    {"before the end of the file",
     "\"ab",
     {.fieldBytes = 1},
     DatabaseError("A CSV field exceeds the 1-byte import limit.")},
};

TEST(CSVStream, KeepsToItsLimits) {
  for (LimitCase const& each : limitCases) {
    SCOPED_TRACE(each.says);
    auto const failure = failureOf([&] { rowsOf(each.text, {}, each.limits); });
    EXPECT_EQ(failure, each.failure.value_or(failureOf([] {})));
  }
}

TEST(CSVStream, CountsALastFieldThatTheEndOfTheFileLeavesEmptyForNothing) {
  EXPECT_EQ(rowsOf("a,b,", {}, {.columns = 2}), (Rows{{"a", "b", ""}}));
}

TEST(CSVStream, TakesAFieldOf16MiBAndNoByteMore) {
  constexpr std::size_t most = 16'777'216;
  std::string text(most, 'a');
  CSVLimits const limits{.fieldBytes = most};
  EXPECT_EQ(rowsOf(text + ",b\n", {}, limits), (Rows{{text, "b"}}));
  text += 'a';
  EXPECT_EQ(failureOf([&] { rowsOf(text, {}, limits); }),
            DatabaseError("A CSV field exceeds the 16777216-byte import limit."));
}

/// `fields` fields of `size` bytes, the last one of `lastSize`, and CR LF.
std::string rowOf(std::size_t fields, std::size_t size, std::size_t lastSize) {
  return repeated(std::string(size, 'a') + ",", fields - 1) + std::string(lastSize, 'b') + "\r\n";
}

struct LongRowCase {
  char const* says;
  std::string row;
  std::optional<DatabaseError> failure;
};

// With 63 delimiters and the CR, 64 fields of 16,383 bytes are 1,048,576.
LongRowCase const longRows[] = {
    {"as many fields as a row may have", rowOf(64, 1'000, 1'000), {}},
    {"one more", rowOf(65, 1'000, 1'000), rowTooLong},
    {"one more that is empty", rowOf(65, 1'000, 0), rowTooLong},
    {"as many bytes as a field may have", rowOf(3, 1, 65'536), {}},
    {"one more", rowOf(3, 1, 65'537), DatabaseError("A CSV field exceeds the 65536-byte import limit.")},
    {"as many bytes as a row may have", rowOf(64, 16'383, 16'383), {}},
    {"one more", rowOf(64, 16'383, 16'384), rowTooLong},
};

TEST(CSVStream, KeepsToItsLimitsInRowsOfManyReads) {
  CSVLimits const limits{.columns = 64, .fieldBytes = 65'536, .rowBytes = 1'048'576};
  for (LongRowCase const& each : longRows) {
    // Rows that end wherever in a read, with the row in question first, last and between them.
    for (std::size_t const before : {std::size_t{0}, std::size_t{1}, std::size_t{700}}) {
      SCOPED_TRACE(testing::Message() << each.says << " behind " << before << " rows");
      std::string const text = repeated(rowOf(9, 10, 11), before) + each.row + rowOf(1, 0, 3) + each.row;
      TemporaryFolder const folder;
      CSVStream stream(folder.write("rows.csv", text), {}, limits);
      std::size_t rows = 0;
      auto const failure = failureOf([&] {
        while (stream.next(noTask)) ++rows;
      });
      EXPECT_EQ(failure, each.failure.value_or(failureOf([] {})));
      EXPECT_EQ(rows, before + (each.failure ? 0 : 3));
    }
  }
}

// Where one read ends and the next begins ---------------------------------------------------------------

TEST(CSVStream, ReadsOnWhereverAReadEnds) {
  std::string_view const tails[] = {"ab,cd\r\nef\n", "\"a\"\"b\",\"c\"d\r\n\"\"", "\u00E9,\"\u20AC\"\n\n",
                                    ",,\r\r\n,\""};
  for (std::string_view const tail : tails) {
    for (std::size_t before = 0; before <= tail.size() + 1; ++before) {
      std::string const text = repeated("x", 65'536 - before) + std::string(tail);
      SCOPED_TRACE(testing::Message() << testing::PrintToString(tail) << " from " << before << " before the end");
      CSVByteMachine machine(text, {}, {});
      TemporaryFolder const folder;
      CSVStream stream(folder.write("rows.csv", text));
      EXPECT_EQ(rowsAndFailure([&] { return stream.next(noTask); }), rowsAndFailure([&] { return machine.next(); }));
    }
  }
}

TEST(CSVStream, KeepsTheViewsOfARowThatTakesManyReads) {
  for (CSVEncoding const encoding : {CSVEncoding::utf8, CSVEncoding::latin1}) {
    std::string line;
    for (int field = 0; field < 40'000; ++field)
      line += std::to_string(field) + (field % 7 == 0 ? ",\"\u00FC\"\"\"," : ",");
    std::string const text = line + "\n" + line + "\n";
    CSVOptions const options{.encoding = encoding};
    CSVByteMachine machine(text, options, {});
    TemporaryFolder const folder;
    CSVStream stream(folder.write("rows.csv", text), options);
    EXPECT_TRUE(rowsAndFailure([&] { return stream.nextFields(noTask); }) ==
                rowsAndFailure([&] { return machine.next(); }));
  }
}

/// What this process has allocated, in bytes.
std::size_t allocated() {
  struct mallinfo2 const now = mallinfo2();
  return now.uordblks + now.hblkhd;
}

TEST(CSVStream, GivesBackTheRoomOfARowThatIsFarLongerThanTheNext) {
  if (sanitized) GTEST_SKIP() << "the allocator is another";
  std::string const fields = repeated("\xFC,", 1'000'000);
  std::string const row = "\xFC,b\n";
  std::size_t const shortRows = 200'000;
  TemporaryFolder const folder;
  auto const file = folder.write("rows.csv", fields + "\n" + repeated(row, shortRows));
  for (CSVOptions const& options : {CSVOptions{.encoding = CSVEncoding::latin1}, CSVOptions{.delimiter = 0xFC}}) {
    std::size_t const before = allocated();
    CSVStream stream(file, options);
    EXPECT_EQ(stream.nextFields(noTask)->size(), 1'000'001U);
    EXPECT_GT(allocated(), before + 2'000'000 + 1'000'001 * sizeof(std::string_view));
    for (std::size_t count = 0; count < shortRows; ++count) ASSERT_TRUE(stream.nextFields(noTask));
    EXPECT_LT(allocated(), before + 1'000'000);
  }
}

// Files and tasks --------------------------------------------------------------------------------------

TEST(CSVStream, PassesOnWhatTheFileSystemSays) {
  TemporaryFolder const folder;
  EXPECT_EQ(systemFailureOf([&] { CSVStream stream(folder / "none.csv"); }), "ENOENT none.csv");
  EXPECT_EQ(systemFailureOf([&] { CSVStream stream(folder.path()); }).substr(0, 6), "EINVAL");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(systemFailureOf([&] { CSVStream stream(folder / "pipe"); }), "EINVAL pipe");
  EXPECT_EQ(systemFailureOf([&] { CSVStream stream("/dev/null"); }), "EINVAL null");
}

TEST(CSVStream, PassesOnAReadThatFails) {
  CSVStream memory("/proc/self/mem");  // nothing is mapped at its first byte
  EXPECT_EQ(systemFailureOf([&] { memory.next(noTask); }), "EIO mem");
  CSVRowReader reader([](std::span<std::uint8_t>) -> std::size_t { throw std::runtime_error("The disk is gone."); }, {},
                      {});
  EXPECT_THROW(reader.next(noTask), std::runtime_error);
}

TEST(CSVStream, LeavesTheLocksOfADatabaseThatIsOpen) {
  TemporaryDatabase const database("CREATE TABLE t(a)");
  auto const connection = SQLiteConnection::open(database.path(), {.readOnly = false});
  connection->execute("BEGIN IMMEDIATE");
  EXPECT_TRUE(CSVStream(database.path(), {.encoding = CSVEncoding::latin1}).next(noTask));
  EXPECT_EQ(SQLitePeer(database.path()).exec("INSERT INTO t VALUES (1)"), "error 5 database is locked");
  connection->execute("ROLLBACK");
}

TEST(CSVStream, StopsWhenItsTaskIsCancelled) {
  std::stop_source source;
  TemporaryFolder const folder;
  CSVStream stream(folder.write("rows.csv", "a\nb\nc\n"));
  EXPECT_TRUE(stream.next(source.get_token()));
  source.request_stop();
  EXPECT_THROW(stream.next(source.get_token()), TaskCancelled);
  CSVStream empty(folder.write("empty.csv", ""));
  EXPECT_EQ(empty.next(source.get_token()), std::nullopt);
}

TEST(CSVStream, StopsWithinARowThatNeverEnds) {
  std::stop_source source;
  int reads = 0;
  CSVRowReader reader(
      [&](std::span<std::uint8_t> into) {
        if (++reads == 3) source.request_stop();
        std::fill(into.begin(), into.end(), std::uint8_t{'a'});
        return reads < 10 ? into.size() : 0;  // so that a reader that does not stop fails the test and no more
      },
      {}, {});
  EXPECT_THROW(reader.next(source.get_token()), TaskCancelled);
  EXPECT_EQ(reads, 3);
}

TEST(CSVStream, StopsWhileItDecodesARow) {
  std::stop_source source;
  int reads = 0;
  CSVRowReader reader(
      [&](std::span<std::uint8_t> into) -> std::size_t {
        if (++reads > 1) {
          source.request_stop();
          return 0;
        }
        into[0] = 0xFC;
        return 1;
      },
      {.encoding = CSVEncoding::latin1}, {});
  EXPECT_THROW(reader.next(source.get_token()), TaskCancelled);
}

// Any input, any limits, any sizes of reads -------------------------------------------------------------

TEST(CSVStream, DoesWhatTheByteMachineDoes) {
  std::mt19937 random(1);  // NOLINT(*-msc51-cpp): the same inputs each time
  auto const below = [&random](std::size_t bound) { return random() % bound; };
  std::string_view const alphabets[] = {"a\",\n\r", "ab,;\"\"\r\n\xC3\xA9\xFF\0"sv,
                                        "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa,\n\""};
  std::uint8_t const separators[] = {',', ';', 'a', '"', '\r', '\n', 0xC3, 0};
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    auto const alphabet = alphabets[below(std::size(alphabets))];
    for (std::size_t length = below(round % 10 == 0 ? 300 : 30); length > 0; --length) {
      text += alphabet[below(alphabet.size())];
    }
    CSVOptions options;
    if (below(3) == 0) options.delimiter = separators[below(std::size(separators))];
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

// Files that others wrote ------------------------------------------------------------------------------

/// The string in JSON, with only those characters escaped that must be.
std::string jsonString(std::string_view text) {
  constexpr std::string_view named = "\"\\\b\f\n\r\t";
  std::string json = "\"";
  for (char const character : text) {
    if (auto const at = named.find(character); at != named.npos) {
      json += {'\\', "\"\\bfnrt"[at]};
    } else if (static_cast<unsigned char>(character) < 0x20) {
      json += "\\u00";
      json += hexText(std::array{static_cast<std::uint8_t>(character)});
    } else {
      json += character;
    }
  }
  return json + '"';
}

/// What the corpora note of a file's rows: their number and a digest, or the failure.
std::vector<std::string> noteOf(std::filesystem::path const& file, CSVEncoding encoding) {
  try {
    CSVStream stream(file, {.encoding = encoding});
    std::string json;
    Rows const rows = rowsOf(stream);
    for (auto const& row : rows) {
      std::string fields;
      for (std::string const& field : row) fields += (fields.empty() ? "" : ",") + jsonString(field);
      json += (json.empty() ? "[" : ",[") + fields + "]";
    }
    return {std::to_string(rows.size()) + " rows", sha256Text("[" + json + "]").substr(0, 16)};
  } catch (DatabaseError const& error) {
    return {error.detail, "-"};
  }
}

TEST(CSVStream, ReadsRealFilesAsTheyAreNoted) {
  TOLVA_NEEDS_CORPORA();
  for (std::string const folder : {"csv-spectrum", "csv-duckdb"}) {
    for (auto const& note : corpusManifest(folder)) {
      ASSERT_EQ(note.size(), 5U);
      SCOPED_TRACE(note[0]);
      auto const file = corpusFile(folder + "/" + note[0]);
      EXPECT_EQ(noteOf(file, CSVEncoding::utf8), (std::vector{note[1], note[2]}));
      EXPECT_EQ(noteOf(file, CSVEncoding::latin1), (std::vector{note[3], note[4]}));
    }
  }
}

/// The text with CR LF for each LF.
std::string withCRLF(std::string_view text) {
  std::string longer;
  for (char const byte : text) longer += byte == '\n' ? "\r\n"s : std::string(1, byte);
  return longer;
}

TEST(CSVStream, ReadsTheSameRowsWithOtherLineEnds) {
  TOLVA_NEEDS_CORPORA();
  for (auto const& file : corpusFiles("csv-spectrum", ".csv")) {
    SCOPED_TRACE(file);
    std::string const text = contents(file);
    Rows rows = rowsOf(text);
    for (auto& row : rows) {
      for (std::string& field : row) field = withCRLF(field);
    }
    EXPECT_EQ(rowsOf(withCRLF(text)), rows);
  }
}

}  // namespace
}  // namespace tolva
