// SPDX-License-Identifier: Apache-2.0
#include "core/SQLiteValue.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "support/ValueText.hpp"

namespace tolva {
namespace {

struct InputCase {
  char const* says;
  char const* typed;
  char const* affinity;
  SQLiteValue value;
};

InputCase const inputs[] = {
    {"digits in an integer column", "5", "INTEGER", 5},
    {"a plus sign", "+5", "INTEGER", 5},
    {"a minus sign", "-5", "INTEGER", -5},
    {"leading zeros", "007", "INTEGER", 7},
    {"the largest integer", "9223372036854775807", "INTEGER", std::numeric_limits<std::int64_t>::max()},
    {"one past it", "9223372036854775808", "INTEGER", 9223372036854775808.0},
    {"the smallest integer", "-9223372036854775808", "INTEGER", std::numeric_limits<std::int64_t>::min()},
    {"one past that", "-9223372036854775809", "INTEGER", -9223372036854775808.0},
    {"letters", "abc", "INTEGER", "abc"},
    {"letters behind digits", "12x", "INTEGER", "12x"},
    {"nothing", "", "INTEGER", ""},
    {"a lone sign", "-", "INTEGER", "-"},
    {"two signs", "+-5", "INTEGER", "+-5"},
    {"a leading blank", " 5", "INTEGER", " 5"},
    {"a leading tab", "\t5", "INTEGER", "\t5"},
    {"a trailing blank", "5 ", "INTEGER", "5 "},
    {"a fraction in an integer column", "1.5", "INTEGER", 1.5},
    {"an exponent", "1e3", "INTEGER", 1000.0},
    {"hexadecimal digits are a hexadecimal float", "0x10", "INTEGER", 16.0},
    {"a hexadecimal float", "0x1p4", "REAL", 16.0},
    {"infinity", "inf", "INTEGER", "inf"},
    {"infinity in full", "-Infinity", "REAL", "-Infinity"},
    {"not a number", "nan", "REAL", "nan"},
    {"a number beyond doubles", "1e999", "REAL", "1e999"},
    {"a decimal comma", "1,5", "REAL", "1,5"},
    {"digits in a real column", "5", "REAL", 5},
    {"digits in a numeric column", "5", "DECIMAL(10,5)", 5},
    {"a text column", "5", "TEXT", "5"},
    {"a character column", "5", "VARCHAR(10)", "5"},
    {"a character column in lower case", "5", "nvarchar", "5"},
    {"a character blob column", "5", "CLOB", "5"},
    {"text anywhere in the type", "5", "my text type", "5"},
    {"a blob column", "5", "BLOB", "5"},
    {"a blob column in lower case", "5", "blob", "5"},
    {"a type that only begins with blob", "5", "BLOB(10)", 5},
    {"a column without a type", "5", "", "5"},
};

TEST(SQLiteValue, ReadsWhatWasTypedByTheColumnsType) {
  for (InputCase const& each : inputs) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(SQLiteValue::input(each.typed, each.affinity), each.value);
  }
}

TEST(SQLiteValue, KeepsTypedTextWithAnEmbeddedNul) {
  std::string const typed("5\0", 2);
  EXPECT_EQ(SQLiteValue::input(typed, "INTEGER"), SQLiteValue(typed));
}

struct DisplayCase {
  char const* says;
  SQLiteValue value;
  char const* display;
  std::int64_t memorySize;
  bool deferred;
};

DisplayCase const displays[] = {
    {"an integer", -42, "-42", 32, false},
    {"a whole real", 1.0, "1.0", 32, false},
    {"a large real", 1e20, "1e+20", 32, false},
    {"a real of many digits", 0.1, "0.1", 32, false},
    {"a text", "Grüße", "Grüße", 39, false},
    {"an empty text", "", "", 32, false},
    {"a blob", Bytes(3), "BLOB · 3 bytes", 35, false},
    {"a blob of one byte", Bytes(1), "BLOB · 1 bytes", 33, false},
    {"an empty blob", Bytes(), "BLOB · 0 bytes", 32, false},
    {"a deferred text", LargeText{184'320}, "Large Text · 184 KB", 32, true},
    {"a deferred blob", LargeBlob{1'500'000}, "BLOB · 1.5 MB", 32, true},
    {"a deferred empty blob", LargeBlob{0}, "BLOB · Zero KB", 32, true},
    {"null", Null{}, "NULL", 32, false},
};

TEST(SQLiteValue, ShowsEachCaseAndIsChargedForWhatItHolds) {
  for (DisplayCase const& each : displays) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(each.value.display(), each.display);
    EXPECT_EQ(each.value.memorySize(), each.memorySize);
    EXPECT_EQ(each.value.isDeferred(), each.deferred);
  }
}

TEST(SQLiteValue, IsEqualByCaseAndPayload) {
  EXPECT_EQ(SQLiteValue::integer(1), SQLiteValue(1));
  EXPECT_NE(SQLiteValue::integer(1), SQLiteValue::real(1.0));
  EXPECT_NE(SQLiteValue::largeText(5), SQLiteValue::text("12345"));
  EXPECT_NE(SQLiteValue::largeText(5), SQLiteValue::largeBlob(5));
  EXPECT_NE(SQLiteValue::text("a"), SQLiteValue::blob({'a'}));
  EXPECT_EQ(SQLiteValue::blob({1, 2}), SQLiteValue::blob({1, 2}));
  EXPECT_EQ(SQLiteValue::null(), SQLiteValue());
  EXPECT_EQ(SQLiteValue::real(0.0), SQLiteValue::real(-0.0));
  double const nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(SQLiteValue::real(nan), SQLiteValue::real(nan));
}

TEST(SQLiteValue, HoldsItsCasesInAFixedOrder) {
  SQLiteValue const inOrder[] = {SQLiteValue::integer(0), SQLiteValue::real(0),      SQLiteValue::text(""),
                                 SQLiteValue::blob({}),   SQLiteValue::largeText(0), SQLiteValue::largeBlob(0),
                                 SQLiteValue::null()};
  for (std::size_t place = 0; place < std::size(inOrder); ++place) EXPECT_EQ(inOrder[place].payload().index(), place);
}

}  // namespace
}  // namespace tolva
