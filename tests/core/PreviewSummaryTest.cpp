// SPDX-License-Identifier: Apache-2.0
#include "core/PreviewSummary.hpp"

#include <gtest/gtest.h>

#include "platform/DateText.hpp"

namespace tolva {
namespace {

PreviewSummary named(int tables) {
  PreviewSummary summary{.fileName = "a.db"};
  for (int table = 1; table <= tables; ++table) summary.count("table", [&] { return "t" + std::to_string(table); });
  return summary;
}

std::string lines(int names) {
  std::string text;
  for (int table = 1; table <= names; ++table) text += (table > 1 ? "\nt" : "t") + std::to_string(table);
  return text;
}

TEST(PreviewSummary, ReadsByteForByteAsDesigned) {
  auto const modified = std::chrono::system_clock::time_point(std::chrono::seconds(1'794'778'860));
  PreviewSummary const summary{.fileName = "Sales.db",
                               .tables = 3,
                               .views = 1,
                               .indexes = 2,
                               .names = {"customers", "invoices", "items"},
                               .fileSize = 184'320,
                               .modified = modified};
  EXPECT_EQ(summary.text(),
            "Sales.db\nSQLite Database\n\n3 tables · 1 views · 2 indexes\n184 KB\n\nTABLES\ncustomers\ninvoices\nitems"
            "\n\nModified " +
                dateText(modified));
}

TEST(PreviewSummary, HasThreeLineFeedsWhereThereAreNoTables) {
  EXPECT_EQ(named(0).text(),
            "a.db\nSQLite Database\n\n0 tables · 0 views · 0 indexes\nZero KB\n\nTABLES\n\n\nModified Unknown");
}

TEST(PreviewSummary, NeverPutsACountInTheSingular) {
  EXPECT_NE(named(1).text().find("1 tables · 0 views"), std::string::npos);
}

TEST(PreviewSummary, NamesAHundredTablesAndThenAnEllipsis) {
  EXPECT_EQ(named(100).text(), "a.db\nSQLite Database\n\n100 tables · 0 views · 0 indexes\nZero KB\n\nTABLES\n" +
                                   lines(100) + "\n\nModified Unknown");
  EXPECT_EQ(named(101).text(), "a.db\nSQLite Database\n\n101 tables · 0 views · 0 indexes\nZero KB\n\nTABLES\n" +
                                   lines(100) + "\n\u2026\n\nModified Unknown");
}

TEST(PreviewSummary, CountsViewsAndIndexesAndNothingElse) {
  PreviewSummary summary;
  auto const unread = []() -> std::string { throw std::logic_error("only a table's name is read"); };
  for (char const* const kind : {"view", "index", "trigger", "view", "TABLE"}) summary.count(kind, unread);
  EXPECT_EQ(summary.views, 2);
  EXPECT_EQ(summary.indexes, 1);
  EXPECT_EQ(summary.tables, 0);
}

}  // namespace
}  // namespace tolva
