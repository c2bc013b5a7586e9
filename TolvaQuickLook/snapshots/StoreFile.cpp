// SPDX-License-Identifier: Apache-2.0
#include "snapshots/StoreFile.hpp"

#include <cstdint>

#include "platform/AtomicFile.hpp"
#include "platform/SafeFile.hpp"
#include "snapshots/SnapshotStore.hpp"

namespace tolva {

/// One byte beyond the limit is asked for: the file may grow after its size was looked at.
std::string readStoreFile(std::filesystem::path const& path, Limit const& limit) {
  SafeFile file(path, Links::refuse);
  limit.check(static_cast<std::int64_t>(file.size()));
  Bytes const bytes = file.readUpTo(static_cast<std::size_t>(limit.most) + 1);
  limit.check(static_cast<std::int64_t>(bytes.size()));
  return std::string(bytes.begin(), bytes.end());
}

void writeStoreFile(std::filesystem::path const& path, std::string_view text, Limit const& limit) {
  limit.check(static_cast<std::int64_t>(text.size()));
  AtomicFile file(path, {.prefix = SnapshotStore::hiddenPrefix, .mode = 0666});
  file.write(text);
  file.publish(Publication::replace);
}

}  // namespace tolva
