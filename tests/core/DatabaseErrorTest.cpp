// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseError.hpp"

#include <gtest/gtest.h>

#include "support/Failure.hpp"

namespace tolva {
namespace {

struct TextCase {
  char const* says;
  std::int32_t code;
  char const* text;
};

constexpr char const* lockText =
    "Another connection is holding a database lock. Wait for its transaction to finish, then try again. raw";
constexpr char const* readOnlyText = "This database is currently read-only. raw";
constexpr char const* damageText =
    "SQLite detected damage in this database. Restore a known-good backup or recover a separate copy. Tolva does not "
    "automatically repair databases.";
constexpr char const* constraintText = "That change violates a database constraint. raw";
constexpr char const* notDatabaseText =
    "SQLite cannot recognize this file. It may not be a SQLite database, may be encrypted, or may have a damaged "
    "header. Encrypted databases are not supported.";

TextCase const texts[] = {
    {"busy", 5, lockText},
    {"busy snapshot, an extended code", 517, lockText},
    {"locked", 6, lockText},
    {"locked shared cache", 262, lockText},
    {"read-only", 8, readOnlyText},
    {"read-only with a hot journal", 776, readOnlyText},
    {"interrupted, the detail is dropped", 9, "Cancelled"},
    {"an extended code of an interruption", 9 | 1 << 8, "Cancelled"},
    {"corrupt, the detail is dropped", 11, damageText},
    {"corrupt index", 779, damageText},
    {"constraint", 19, constraintText},
    {"unique constraint", 2067, constraintText},
    {"not a database, the detail is dropped", 26, notDatabaseText},
    {"own validation", 1, "raw"},
    {"no error at all", 0, "raw"},
    {"out of memory", 7, "raw"},
    {"cannot open", 14, "raw"},
    {"a code above the byte of another", 256, "raw"},
};

TEST(DatabaseError, ShowsTheTextOfThePrimaryCode) {
  for (TextCase const& each : texts) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(DatabaseError("raw", each.code).errorDescription(), each.text);
  }
}

TEST(DatabaseError, IsACancellationWhenThePrimaryCodeIsAnInterruption) {
  EXPECT_TRUE(DatabaseError("interrupted", 9).isCancellation());
  EXPECT_TRUE(DatabaseError("interrupted", 9 | 3 << 8).isCancellation());
  EXPECT_FALSE(DatabaseError("busy", 5).isCancellation());
  EXPECT_FALSE(DatabaseError("nine in the upper byte", 9 << 8).isCancellation());
}

TEST(DatabaseError, IsOwnValidationUnlessACodeIsGiven) {
  EXPECT_EQ(DatabaseError("why").code, 1);
  EXPECT_EQ(DatabaseError("why"), DatabaseError("why", 1));
  EXPECT_FALSE(DatabaseError("why", 1) == DatabaseError("why", 8));
  EXPECT_FALSE(DatabaseError("why") == DatabaseError("how"));
}

TEST(DatabaseError, TellsItsDetailToWhoKnowsOnlyStandardExceptions) {
  try {
    throw DatabaseError("the detail", 9);
  } catch (std::exception const& error) {
    EXPECT_STREQ(error.what(), "the detail");
  }
}

}  // namespace
}  // namespace tolva
