// SPDX-License-Identifier: Apache-2.0
#include "support/PowerLoss.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <set>

#include "platform/AtomicFile.hpp"
#include "platform/Descriptor.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

/// "name=content" for each file, sorted, with blanks between; hidden names are cut to ".".
std::set<std::string> statesOf(std::vector<PowerLoss> const& losses, bool completed) {
  std::set<std::string> states;
  for (PowerLoss const& loss : losses) {
    if (loss.completed != completed) continue;
    std::string text;
    for (auto const& [path, content] : loss.entries) {
      std::string const name = path.string();
      text += (text.empty() ? "" : " ") + (name.starts_with('.') ? "." : name) + (content ? "=" + *content : "/");
    }
    states.insert(text);
  }
  return states;
}

void overwrite(std::filesystem::path const& path, std::string_view text, bool flush) {
  Descriptor const file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  ASSERT_EQ(::write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  if (flush) {
    ASSERT_EQ(::fsync(file.get()), 0);
  }
}

TEST(PowerLoss, LosesOrTearsWhatWasNotFlushed) {
  TemporaryFolder const folder;
  folder.write("a", "old");
  auto const losses = PowerLoss::during(folder.path(), [&] { overwrite(folder / "a", "newest", /*flush=*/false); });
  EXPECT_EQ(statesOf(losses, true), (std::set<std::string>{"a=old", "a=new", "a=newest"}));
}

TEST(PowerLoss, KeepsWhatWasFlushedAndMayLoseItsName) {
  TemporaryFolder const folder;
  auto const losses = PowerLoss::during(folder.path(), [&] { overwrite(folder / "a", "text", /*flush=*/true); });
  EXPECT_EQ(statesOf(losses, true), (std::set<std::string>{"", "a=text"}));
}

TEST(PowerLoss, LosesWhatWasDoneEarlierAndNeverFlushed) {
  TemporaryFolder const folder;
  auto const make = [&] { std::filesystem::create_directory(folder / "a"); };
  auto const losses =
      PowerLoss::during(folder.path(), make, [&] { overwrite(folder / "a" / "b", "text", /*flush=*/true); });
  EXPECT_EQ(statesOf(losses, true), (std::set<std::string>{"", "a/", "a/ a/b=text"}));
}

TEST(PowerLoss, TearsAFileThatTakesANameUnflushed) {
  TemporaryFolder const folder;
  folder.write("a", "old");
  auto const losses = PowerLoss::during(folder.path(), [&] {
    overwrite(folder / "b", "newest", /*flush=*/false);
    ASSERT_EQ(::rename((folder / "b").c_str(), (folder / "a").c_str()), 0);
  });
  EXPECT_EQ(statesOf(losses, true), (std::set<std::string>{"a=old", "a=", "a=new", "a=newest"}));
}

TEST(PowerLoss, LeavesAnAtomicFileOldOrNewAndNewOnceItIsPublished) {
  TemporaryFolder const folder;
  folder.write("a", "old");
  auto const losses = PowerLoss::during(folder.path(), [&] {
    AtomicFile file(folder / "a");
    file.write("newest");
    file.publish(Publication::replace);
  });
  EXPECT_EQ(statesOf(losses, true), (std::set<std::string>{"a=newest"}));
  EXPECT_EQ(statesOf(losses, false),
            (std::set<std::string>{"a=old", ".= a=old", ".=new a=old", ".=newest a=old", "a=newest"}));
}

TEST(PowerLoss, IsRestored) {
  TemporaryFolder const folder;
  PowerLoss const loss{.says = {}, .completed = false, .entries = {{"a", "1"}, {"b", {}}, {"b/c", "2"}}};
  folder.write("restored", "is in the way");
  loss.restore(folder / "restored");
  EXPECT_EQ(folder.read("restored/a") + folder.read("restored/b/c"), "12");
}

}  // namespace
}  // namespace tolva
