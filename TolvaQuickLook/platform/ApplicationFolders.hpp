// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tolva {

/// Where the two folders lie when it is not where the system says: an empty path is what the system says. A value.
struct FolderRoots {
  std::filesystem::path applicationSupport;  // in place of the user's data folder; "Tolva" is added
  std::filesystem::path temporary;           // in place of the system's temporary folder; "tolva-<uid>" is added
};

/// The folder of the user's own lasting files, "Tolva" in the data folder of the XDG Base Directory rules:
/// $XDG_DATA_HOME if that is absolute, else .local/share in $HOME, else in the home of the password database.
/// It is not made here. Any thread that does not run beside a change of the environment.
std::filesystem::path applicationSupport(FolderRoots const& roots = {});

/// The user's private folder for files that a crash may leave: "tolva-<uid>" in $TMPDIR if that is absolute, else in
/// /tmp, with links resolved. Made with mode 0700 on demand and proven at each call: a folder, not a link, owned by the
/// effective user and closed to everybody else; otherwise throws `std::filesystem::filesystem_error`.
std::filesystem::path temporaryFolder(FolderRoots const& roots = {});

}  // namespace tolva
