// SPDX-License-Identifier: Apache-2.0
#include "core/VirtualModule.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tolva {
namespace {

struct ModuleCase {
  char const* says;
  std::string_view sql;
  std::optional<std::string> module;
};

using std::string_view_literals::operator""sv;

TEST(VirtualModule, IsTheNameBehindUsing) {
  ModuleCase const cases[] = {
      {"the plain form", "CREATE VIRTUAL TABLE t USING fts5(x)", "fts5"},
      {"case is folded", "create Virtual tABLE T uSING FtS4(x)", "fts4"},
      {"without arguments", "CREATE VIRTUAL TABLE t USING fts3", "fts3"},
      {"only if it is not there", "CREATE VIRTUAL TABLE IF NOT EXISTS t USING fts5(x)", "fts5"},
      {"any module", "CREATE VIRTUAL TABLE t USING rtree(id, a, b)", "rtree"},
      {"a name that is a keyword", "CREATE VIRTUAL TABLE \"using\" USING fts5(x)", "fts5"},
      {"a quoted name that looks like words", "CREATE VIRTUAL TABLE \"if\" USING fts5(x)", "fts5"},
      {"a name in another alphabet", "CREATE VIRTUAL TABLE größe USING fts5(x)", "fts5"},
      {"what follows the statement", "CREATE VIRTUAL TABLE t USING fts5;DROP TABLE t", "fts5"},
  };
  for (ModuleCase const& each : cases) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(virtualModule(each.sql), each.module);
  }
}

TEST(VirtualModule, SkipsWhiteSpaceAndComments) {
  ModuleCase const cases[] = {
      {"all white space of SQL", "CREATE\tVIRTUAL\nTABLE\f\rt \v USING\n\nfts5 (x)", "fts5"},
      {"a byte order mark", "\xEF\xBB\xBF CREATE VIRTUAL TABLE t USING fts5(x)", "fts5"},
      {"a comment between words", "create /* c */ virtual table [a b] using FTS4", "fts4"},
      {"a comment in place of a blank", "CREATE/**/VIRTUAL/* ( */TABLE--x\nt/***/USING/*/*/fts5(x)", "fts5"},
      {"a line comment ends at a line feed only", "CREATE VIRTUAL TABLE t --\rUSING fts3\nUSING fts4(x)", "fts4"},
      {"a line comment without end", "CREATE VIRTUAL TABLE t USING -- fts5(x)", {}},
      {"a comment without end", "CREATE VIRTUAL TABLE t USING /* fts5(x)", {}},
      {"a slash and a star are no whole comment", "CREATE VIRTUAL TABLE t USING /*/ fts5(x)", {}},
      {"a lone dash is no comment", "CREATE VIRTUAL TABLE t - x\nUSING fts5(x)", {}},
      {"no comment within quotes", "CREATE VIRTUAL TABLE '--/*' USING fts5(x)", "fts5"},
  };
  for (ModuleCase const& each : cases) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(virtualModule(each.sql), each.module);
  }
}

TEST(VirtualModule, TakesQuotedAndDottedNamesWhole) {
  ModuleCase const cases[] = {
      {"double quotes", R"(CREATE VIRTUAL TABLE "a (b" USING fts5(x))", "fts5"},
      {"doubled double quotes", R"(CREATE VIRTUAL TABLE "a"" USING fts4(" USING fts5(x))", "fts5"},
      {"single quotes, doubled", "CREATE VIRTUAL TABLE 'a'' b' USING fts5(x)", "fts5"},
      {"backticks, doubled", "CREATE VIRTUAL TABLE `a`` b` USING fts5(x)", "fts5"},
      {"brackets hold other quotes", R"(CREATE VIRTUAL TABLE [a"'`[ b] USING fts5(x))", "fts5"},
      {"doubled brackets", "CREATE VIRTUAL TABLE [a]] b] USING fts5(x)", "fts5"},
      {"an empty name", "CREATE VIRTUAL TABLE \"\" USING fts5(x)", "fts5"},
      {"quotes need no blanks", "CREATE VIRTUAL TABLE\"a\"USING\"fts5\"(x)", "fts5"},
      {"a quoted module", "CREATE VIRTUAL TABLE t USING [FTS5](x)", "fts5"},
      {"a module with a doubled quote", R"(CREATE VIRTUAL TABLE t USING "f""T"(x))", "f\"t"},
      {"a schema", "CREATE VIRTUAL TABLE main.t USING fts5(x)", "fts5"},
      {"a schema with blanks and quotes", "CREATE VIRTUAL TABLE [main] . /**/ \"t\" USING fts5(x)", "fts5"},
      {"a quote without end", "CREATE VIRTUAL TABLE t USING \"fts5", {}},
      {"a bracket without end", "CREATE VIRTUAL TABLE [t USING fts5(x)", {}},
      {"a quoted keyword is none", "CREATE \"VIRTUAL\" TABLE t USING fts5(x)", {}},
      {"nor is a dotted one", "CREATE VIRTUAL TABLE t.USING fts5(x)", {}},
      {"a dot with nothing in front", "CREATE VIRTUAL TABLE .t USING fts5(x)", {}},
      {"two dots", "CREATE VIRTUAL TABLE t..u USING fts5(x)", {}},
      {"a dot in front of the module", "CREATE VIRTUAL TABLE t USING .fts5(x)", {}},
  };
  for (ModuleCase const& each : cases) {
    SCOPED_TRACE(each.says);
    EXPECT_EQ(virtualModule(each.sql), each.module);
  }
}

TEST(VirtualModule, IsNothingForOtherTexts) {
  std::string_view const others[] = {
      "",
      " ",
      "(",
      "\0CREATE VIRTUAL TABLE t USING fts5"sv,
      "CREATE",
      "CREATE VIRTUAL TABLE",
      "CREATE VIRTUAL TABLE t",
      "CREATE VIRTUAL TABLE t USING",
      "CREATE VIRTUAL TABLE USING fts5(x)",
      "CREATE VIRTUAL TABLE t u USING fts5(x)",
      "CREATE VIRTUAL TABLE IF NOT t USING fts5(x)",
      "CREATE VIRTUAL TABLE IF NOT EXISTS USING fts5(x)",
      "CREATE VIRTUAL TABLE t(USING fts5(x))",
      "CREATE VIRTUAL TABLE t; USING fts5(x)",
      "CREATE VIRTUAL TABLE t\0USING fts5(x)"sv,
      "CREATE TABLE fts5(x)",
      "CREATE TABLE t(x DEFAULT 'CREATE VIRTUAL TABLE t USING fts5')",
      "CREATE TEMP VIRTUAL TABLE t USING fts5(x)",
      "DROP VIRTUAL TABLE t USING fts5(x)",
      "CREATEVIRTUAL TABLE t USING fts5(x)",
  };
  for (std::string_view const sql : others) {
    SCOPED_TRACE(sql);
    EXPECT_EQ(virtualModule(sql), std::nullopt);
  }
}

TEST(VirtualModule, IsLookedForInTheFirstTenWords) {
  EXPECT_EQ(virtualModule("CREATE VIRTUAL TABLE if not exists main.t using fts5(x)"), "fts5");
  EXPECT_EQ(virtualModule("CREATE VIRTUAL TABLE IF NOT EXISTS main.t.u USING fts5(x)"), std::nullopt);
  EXPECT_EQ(virtualModule("CREATE VIRTUAL TABLE t USING fts5 a b c d e f g h i j"), "fts5");
}

TEST(VirtualModule, TakesTimeInProportionToTheText) {
  std::string const head = "CREATE VIRTUAL TABLE ";
  constexpr std::size_t much = 1 << 20;
  auto const repeated = [&](std::string_view part) {
    std::string text;
    while (text.size() < much) text += part;
    return text;
  };
  for (std::string_view const part :
       {"/*", "--\n", "\"\"", "[", "(", ".", "a", ". ", " \t", "/**/", "''", "\xEF\xBB\xBF"}) {
    SCOPED_TRACE(part);
    EXPECT_EQ(virtualModule(head + repeated(part)), std::nullopt);
  }
  EXPECT_EQ(virtualModule(head + '"' + repeated("\"\"") + "\" USING fts5(x)"), "fts5");
}

}  // namespace
}  // namespace tolva
