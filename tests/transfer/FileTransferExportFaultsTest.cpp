// SPDX-License-Identifier: Apache-2.0
// What an export leaves behind when the disk fails, or the process dies, at any of its file calls.
#include <gtest/gtest.h>

#include "support/Browsed.hpp"
#include "support/FaultInjector.hpp"
#include "transfer/ExportScene.hpp"

namespace tolva {
namespace {

struct FaultsCase {
  char const* says;
  ExportFormat format;
  bool replaces;
};

FaultsCase const cases[] = {
    {"a new CSV", ExportFormat::csv, false},   {"a replaced CSV", ExportFormat::csv, true},
    {"a new JSON", ExportFormat::json, false}, {"a replaced JSON", ExportFormat::json, true},
    {"a new SQL", ExportFormat::sql, false},   {"a replaced SQL", ExportFormat::sql, true},
};

/// The hidden files, which only a crash leaves.
std::vector<std::filesystem::path> hiddenIn(TemporaryFolder const& folder) {
  std::vector<std::filesystem::path> hidden;
  for (std::string const& name : folder.names()) {
    if (name.starts_with(".")) hidden.push_back(folder / name);
  }
  return hidden;
}

TEST(FileTransfer, LeavesTheOldFileOrTheNewWhenADiskFailsUnderAnExport) {
  for (FaultsCase const& each : cases) {
    SCOPED_TRACE(each.says);
    ExportScene scene("CREATE TABLE t(a, b)" + inserting("t", "i, zeroblob(4000)", 40));
    std::string const whole = scene.exported(each.format);
    std::string const before = each.replaces ? "old" : "(no out)";
    auto const prepare = [&] {
      for (auto const& left : hiddenIn(scene.folder)) std::filesystem::remove(left);
      std::filesystem::remove(scene.destination);
      if (each.replaces) scene.folder.write("out", before);
    };
    long const calls = forEachFault(
        scene.folder.path(), prepare, [&] { scene.run(each.format); },
        [&](FaultMode mode, long, FaultOutcome const& outcome) {
          std::string const content = scene.content();
          EXPECT_TRUE(content == before || content == whole) << content.size();
          if (outcome.told == FaultOutcome::Told::success) {
            EXPECT_TRUE(content == whole);
          }
          if (outcome.told == FaultOutcome::Told::failure) {
            EXPECT_TRUE(content == before) << outcome.text;
          }
          auto const left = hiddenIn(scene.folder);
          if (mode == FaultMode::kill) {
            EXPECT_LE(left.size(), 1U);
          } else {
            EXPECT_LE(left.size(), 0U) << outcome.text;
          }
          for (auto const& hidden : left) {
            EXPECT_TRUE(hidden.filename().string().starts_with(".tolva-export-"));
            std::filesystem::remove(hidden);
          }
          EXPECT_TRUE(scene.exported(each.format) == whole) << "the next one succeeds";
        });
    EXPECT_GE(calls, 8);
    prepare();
  }
}

}  // namespace
}  // namespace tolva
