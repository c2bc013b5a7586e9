// SPDX-License-Identifier: Apache-2.0
#include "platform/ApplicationFolders.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/Descriptor.hpp"
#include "platform/SystemError.hpp"

namespace tolva {
namespace {

/// The folder that the environment names; empty unless it is absolute, as the XDG Base Directory rules ask.
std::filesystem::path folderNamedBy(char const* variable) {
  char const* const value = ::secure_getenv(variable);
  std::filesystem::path path = value ? value : "";
  return path.is_absolute() ? path : std::filesystem::path();
}

std::filesystem::path homeOfPasswordDatabase() {
  std::vector<char> texts(1024);
  passwd entry{};
  passwd* found = nullptr;
  while ((errno = ::getpwuid_r(::geteuid(), &entry, texts.data(), texts.size(), &found)) == ERANGE)
    texts.resize(texts.size() * 2);
  if (found && found->pw_dir[0] == '/') return found->pw_dir;
  if (errno == 0) errno = ENOENT;
  throwSystemError("This user has no home folder");
}

std::filesystem::path dataFolder() {
  if (auto data = folderNamedBy("XDG_DATA_HOME"); !data.empty()) return data;
  auto const home = folderNamedBy("HOME");
  return (home.empty() ? homeOfPasswordDatabase() : home) / ".local/share";
}

std::filesystem::path systemTemporaryFolder() {
  auto const named = folderNamedBy("TMPDIR");
  return named.empty() ? "/tmp" : named;
}

/// Whoever can write to /tmp can put a folder or a link of their own under our name.
void proveThatItIsOurs(Descriptor const& folder, std::filesystem::path const& path) {
  struct stat status {};
  if (!folder || ::fstat(folder.get(), &status) != 0) throwFileError("The temporary folder cannot be opened", path);
  if (status.st_uid == ::geteuid() && (status.st_mode & 0777) == 0700) return;
  errno = EPERM;
  throwFileError("The temporary folder is not private: it must belong to you and have mode 0700", path);
}

}  // namespace

std::filesystem::path applicationSupport(FolderRoots const& roots) {
  return (roots.applicationSupport.empty() ? dataFolder() : roots.applicationSupport) / "Tolva";
}

std::filesystem::path temporaryFolder(FolderRoots const& roots) {
  auto const system = std::filesystem::canonical(roots.temporary.empty() ? systemTemporaryFolder() : roots.temporary);
  std::string const name = "tolva-" + std::to_string(::geteuid());
  int const flags = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  Descriptor const parent(::open(system.c_str(), O_PATH | flags));
  if (!parent) throwFileError("The temporary folder cannot be opened", system);
  if (::mkdirat(parent.get(), name.c_str(), 0700) != 0 && errno != EEXIST)
    throwFileError("The temporary folder cannot be made", system / name);
  proveThatItIsOurs(Descriptor(::openat(parent.get(), name.c_str(), O_RDONLY | flags)), system / name);
  return system / name;
}

}  // namespace tolva
