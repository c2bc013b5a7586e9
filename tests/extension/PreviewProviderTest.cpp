// SPDX-License-Identifier: Apache-2.0
#include "extension/PreviewProvider.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <vector>

#include "support/Failure.hpp"
#include "support/NoTask.hpp"
#include "support/TemporaryDatabase.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

std::string textOf(QLPreviewReply const& reply) {
  Bytes const bytes = reply.dataCreationBlock();
  return {bytes.begin(), bytes.end()};
}

TEST(PreviewProvider, AnswersWithPlainTextOfTheDesignedSizeAndTitle) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "Sales.db", "CREATE TABLE a(b)");
  PreviewProvider provider;
  QLPreviewReply const reply = provider.providePreview({.fileURL = folder / "Sales.db"}, noTask);
  EXPECT_EQ(reply.contentType, "text/plain");
  EXPECT_EQ(reply.contentSize, (ContentSize{650, 460}));
  EXPECT_EQ(reply.title, "Sales.db");
  EXPECT_EQ(reply.stringEncoding, "UTF-8");
  EXPECT_TRUE(textOf(reply).starts_with("Sales.db\nSQLite Database\n\n1 tables"));
}

TEST(PreviewProvider, MakesTheWholeTextBeforeTheReply) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "Sales.db", "CREATE TABLE a(b)");
  PreviewProvider provider;
  QLPreviewReply const reply = provider.providePreview({.fileURL = folder / "Sales.db"}, noTask);
  std::filesystem::remove(folder / "Sales.db");
  EXPECT_EQ(textOf(reply), textOf(reply));
  EXPECT_NE(textOf(reply).find("1 tables"), std::string::npos);
}

TEST(PreviewProvider, MakesNoReplyOfAFileThatCannotBeRead) {
  TemporaryFolder const folder;
  PreviewProvider provider;
  EXPECT_EQ(failureOf([&] { provider.providePreview({.fileURL = folder / "none.db"}, noTask); }),
            DatabaseError("unable to open database file", 14));
}

TEST(PreviewProvider, CallsBackWithTheReplyOrTheError) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE a(b)");
  std::promise<std::string> title;
  std::promise<DatabaseError> failure;
  PreviewProvider provider;
  provider.providePreview({.fileURL = folder / "t.db"},
                          [&](std::optional<QLPreviewReply> reply, std::exception_ptr error) {
                            EXPECT_FALSE(error);
                            title.set_value(reply ? reply->title : "(none)");
                          });
  provider.providePreview({.fileURL = folder / "none.db"},
                          [&](std::optional<QLPreviewReply> reply, std::exception_ptr error) {
                            EXPECT_FALSE(reply);
                            failure.set_value(failureOf([&] { std::rethrow_exception(error); }));
                          });
  EXPECT_EQ(title.get_future().get(), "t.db");
  EXPECT_EQ(failure.get_future().get(), DatabaseError("unable to open database file", 14));
}

TEST(PreviewProvider, CallsBackInTheOrderOfTheRequests) {
  TemporaryFolder const folder;
  std::vector<std::string> titles;
  std::vector<std::string> asked;
  {
    PreviewProvider provider;
    for (char const name : std::string("abcdefghij")) {
      asked.push_back(std::string(1, name) + ".db");
      folder.write(asked.back(), "");
      provider.providePreview({.fileURL = folder / asked.back()},
                              [&](std::optional<QLPreviewReply> reply, std::exception_ptr) {
                                titles.push_back(reply ? reply->title : "(none)");
                              });
    }
  }
  EXPECT_EQ(titles, asked);
}

TEST(PreviewProvider, WaitsAtItsEndUntilItsHandlersHaveGone) {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "CREATE TABLE a(b)");
  auto const captured = std::make_shared<std::atomic<int>>(0);
  {
    PreviewProvider provider;
    for (int request = 0; request < 10; ++request) {
      provider.providePreview(
          {.fileURL = folder / "t.db"},
          [captured](std::optional<QLPreviewReply> reply, std::exception_ptr) { *captured += reply ? 1 : 0; });
    }
  }
  EXPECT_EQ(*captured, 10);
  EXPECT_EQ(captured.use_count(), 1);
}

}  // namespace
}  // namespace tolva
