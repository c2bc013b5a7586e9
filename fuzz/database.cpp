// SPDX-License-Identifier: Apache-2.0
// Any bytes as a database file: preview, schema and pages never change the file, never leave anything but SQLite's own
// companions beside it, and end within their budget.

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>

#include "core/DatabaseReader.hpp"
#include "fuzz/Expect.hpp"
#include "platform/UTF8.hpp"
#include "platform/Uptime.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostObjects = 20;
constexpr int mostPages = 8;   // of one object; a file of some kilobytes can hold a view of billions of rows
constexpr auto mostTime = 1s;  // for the rows of one object

/// A folder that is the process's own and holds the one file.
class Scratch {
 public:
  Scratch() : folder_(std::filesystem::temp_directory_path() / ("tolva-fuzz-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~Scratch() { std::filesystem::remove_all(folder_); }

  std::filesystem::path file() const { return folder_ / "t.db"; }

  void begin(std::string const& bytes) const {
    for (auto const& entry : std::filesystem::directory_iterator(folder_)) std::filesystem::remove(entry.path());
    std::ofstream(file(), std::ios::binary) << bytes;
  }

  void checkUnchanged(std::string const& bytes) const {
    std::ifstream stream(file(), std::ios::binary);
    expect(std::string(std::istreambuf_iterator<char>(stream), {}) == bytes, "reading leaves a database as it was");
    for (auto const& entry : std::filesystem::directory_iterator(folder_)) {
      std::string const name = entry.path().filename();
      expect(name == "t.db" || name == "t.db-wal" || name == "t.db-shm", "reading leaves only SQLite's companions");
    }
  }

 private:
  std::filesystem::path const folder_;
};

template <class Call>
void tolerate(Call&& call) {
  try {
    call();
  } catch (DatabaseError const& error) {
    expect(isValidUTF8(error.errorDescription()), "an error reads as UTF-8");
  }
}

/// Each page leads on. One that takes long is cancelled.
void browse(DatabaseReader& reader, TableSchema const& schema) {
  std::jthread const watch([&](std::stop_token ended) {
    Uptime const begun = uptime();
    while (!ended.stop_requested()) {
      std::this_thread::sleep_for(1ms);
      if (uptime() - begun > mostTime) reader.cancellation()->cancel();
    }
  });
  std::optional<PageToken> token;
  std::int64_t rows = 0;
  for (int pages = 0; pages < mostPages; ++pages) {
    RowPage const page = reader.page(schema, {}, token, {});
    expect(page.next.has_value() == !page.rows.empty(), "the empty page alone is the last");
    if (!page.next) break;
    rows += std::ssize(page.rows);
    expect(page.rows.size() <= 500 && page.next->offset == rows, "a token counts the rows so far");
    expect(page.next != token, "a page leads on");
    token = page.next;
  }
  reader.count(schema, {});
  if (rows > 2) reader.selectedRows(schema, {}, {{0, 1}, {2, 3}}, {});
}

void previewAndBrowse(std::filesystem::path const& file) {
  DatabaseReader reader;
  Uptime const begun = uptime();
  tolerate([&] {
    std::string const text = reader.preview(file, {});
    expect(text.starts_with("t.db\nSQLite Database\n\n"), "a preview begins with the name");
    expect(isValidUTF8(text), "a preview is UTF-8");
  });
  expect(uptime() - begun < 5s, "a preview ends");
  tolerate([&] {
    std::size_t read = 0;
    for (DatabaseObject const& object : reader.open(file, {})) {
      if (++read > mostObjects) break;
      tolerate([&] {
        TableSchema const schema = reader.schema(object);
        expect(object.kind == "table" || !schema.editable(), "only a table is editable");
        reader.structure(schema);
        if (!schema.columns.empty()) browse(reader, schema);
      });
    }
  });
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static tolva::Scratch const scratch;
  std::string const bytes(data, data + size);
  scratch.begin(bytes);
  tolva::previewAndBrowse(scratch.file());
  scratch.checkUnchanged(bytes);
  return 0;
}
