// SPDX-License-Identifier: Apache-2.0
#include "platform/DiskFlush.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/Descriptor.hpp"
#include "support/FaultInjector.hpp"
#include "support/TemporaryFolder.hpp"

namespace tolva {
namespace {

TEST(DiskFlush, IsStrictForAFileAndLenientForAFolder) {
  struct {
    int error;
    bool file;
    bool folder;
  } const cases[] = {{0, true, true}, {EINTR, true, true}, {EINVAL, false, true}, {EIO, false, false}};
  TemporaryFolder const folder;
  folder.write("file", "x");
  Descriptor const file(::open((folder / "file").c_str(), O_RDONLY | O_CLOEXEC));
  Descriptor const place(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (auto const& now : cases) {
    SCOPED_TRACE(now.error);
    long const at = now.error == 0 ? 0 : 1;
    {
      FaultInjector const injector(folder.path(), {.at = at, .error = now.error});
      EXPECT_EQ(flushFileToDisk(file.get()), now.file);
      if (!now.file) {
        EXPECT_EQ(errno, now.error);
      }
      EXPECT_EQ(injector.calls(), now.error == EINTR ? 2 : 1) << "only what was interrupted is done again";
    }
    FaultInjector const injector(folder.path(), {.at = at, .error = now.error});
    EXPECT_EQ(flushFolderToDisk(place.get()), now.folder);
    if (!now.folder) {
      EXPECT_EQ(errno, now.error);
    }
    EXPECT_EQ(injector.calls(), now.error == EINTR ? 2 : 1);
  }
}

}  // namespace
}  // namespace tolva
