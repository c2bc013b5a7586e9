// SPDX-License-Identifier: Apache-2.0
#include "snapshots/BaselinePointer.hpp"

#include <unistd.h>

#include <boost/describe.hpp>
#include <cstdint>

#include "core/Limit.hpp"
#include "platform/DurableFolder.hpp"
#include "platform/JSONCodec.hpp"
#include "platform/JSONReader.hpp"
#include "platform/SystemError.hpp"
#include "snapshots/StoreFile.hpp"

namespace tolva {
namespace {

constexpr Limit pointerBytes{4096, "Baseline metadata is too large."};

struct PointerRecord {
  std::int64_t version = 1;
  UUID snapshotID;
};
BOOST_DESCRIBE_STRUCT(PointerRecord, (), (version, snapshotID))

}  // namespace

std::optional<UUID> BaselinePointer::id() const {
  std::filesystem::path const path = file();
  if (std::filesystem::symlink_status(path).type() == std::filesystem::file_type::not_found) return std::nullopt;
  auto const record = decodeJSON<PointerRecord>(readJSON(readStoreFile(path, pointerBytes)));
  if (record.version != 1) throw DatabaseError("Unsupported baseline metadata version.");
  return record.snapshotID;
}

void BaselinePointer::require(std::optional<UUID> const& expected) const {
  if (id() != expected)
    throw DatabaseError("The baseline changed in another window. Refresh What Changed before continuing.");
}

/// The folder of the source may have been made by a process that was killed before it had put it on the disk.
void BaselinePointer::set(UUID const& id) const {
  store_.flush();
  writeStoreFile(file(), encodeJSON(PointerRecord{.snapshotID = id}), pointerBytes);
}

void BaselinePointer::clear() const {
  std::filesystem::path const path = file();
  if (::unlink(path.c_str()) != 0) throwFileError("The baseline cannot be cleared", path);
  flushFolder(folder_);
}

}  // namespace tolva
