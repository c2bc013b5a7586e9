// SPDX-License-Identifier: Apache-2.0
#include "snapshots/SnapshotSource.hpp"

#include <fcntl.h>

#include <cerrno>

#include "core/DatabaseError.hpp"
#include "platform/CanonicalPath.hpp"
#include "platform/Descriptor.hpp"
#include "platform/FileIdentity.hpp"
#include "platform/FilePath.hpp"
#include "platform/FileStatus.hpp"
#include "platform/SHA256.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

/// A handle on the file that keeps it whatever happens to its name, so that all that is told is of one file.
Descriptor placeOf(std::filesystem::path const& path) {
  Descriptor place(holdsNUL(path) ? -1 : ::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (holdsNUL(path)) errno = ENOENT;
  if (!place) throwFileError("The file cannot be identified", path);
  return place;
}

}  // namespace

SnapshotSource snapshotSource(std::filesystem::path const& source) {
  SnapshotSource found;
  found.path = holdsNUL(source) ? source : canonicalPath(source);
  Descriptor const place = placeOf(found.path);
  if (!fileStatus(place.get(), found.path).regular) throw DatabaseError("Cannot identify this database file safely.");
  found.sourceIdentity = fileIdentity(place.get(), EpochYear::y1970);
  found.databaseID = sha256Text(found.path.string() + "\n" + found.sourceIdentity);
  return found;
}

}  // namespace tolva
