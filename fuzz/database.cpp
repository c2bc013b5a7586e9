// SPDX-License-Identifier: Apache-2.0
// Any bytes as a database file: preview and schema never change the file, never leave anything but SQLite's own
// companions beside it, and end within their budget.

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "core/DatabaseReader.hpp"
#include "fuzz/Expect.hpp"
#include "platform/UTF8.hpp"
#include "platform/Uptime.hpp"

namespace tolva {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostObjects = 20;

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
