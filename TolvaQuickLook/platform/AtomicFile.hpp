// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "platform/Descriptor.hpp"

namespace tolva {

/// How a finished file takes its name.
enum class Publication {
  exclusive,  // whatever has the name already, a dangling link included, stays and is the error EEXIST; needs a file
              // system that renames without replacing or has hard links
  replace,    // takes the place of what has the name, and its permissions if that is a regular file
};

struct AtomicFileOptions {
  std::string prefix = ".tolva-";  // of the sibling's name; begins with a dot
  mode_t mode = 0600;              // less the process's umask
};

/// A file that appears under its name whole and on the disk, or not at all: the one way a file gets a visible name.
///
/// The bytes go to a hidden sibling in the destination's folder: `prefix` and a new UUID. The first failure, or
/// the end of an object that was not published, deletes it; only a crash leaves one. The folder is opened once, so
/// exchanging its path meanwhile changes nothing. Used by one thread at a time.
/// Every step throws `std::filesystem::filesystem_error` and leaves the destination as it was, but for the last part of
/// `publish`. After a failure the object is of no more use.
class AtomicFile {
 public:
  explicit AtomicFile(std::filesystem::path const& destination, AtomicFileOptions const& options = {});
  AtomicFile(int folder, std::string name, AtomicFileOptions const& options = {});  // `folder` is open for reading
  ~AtomicFile();
  AtomicFile(AtomicFile const&) = delete;
  AtomicFile& operator=(AtomicFile const&) = delete;

  // In the order of life ----------------------------------------------------------------------------

  /// Appends all of `bytes`.
  void write(std::span<std::uint8_t const> bytes);
  void write(std::string_view text);

  /// Puts what was written on the disk. Apart from `publish` only for callers that test something in between.
  void flush();

  /// Flushes and closes, gives the file its name and puts the folder on the disk; nothing is written afterwards.
  /// `lastLook` comes just before the name, so that what it throws prevents that. When only the folder fails it throws
  /// although the file has its name: see `published`.
  void publish(Publication publication, std::function<void()> const& lastLook = {});

  /// Whether the file has its name.
  bool published() const { return published_; }

  // For those who need the sibling itself -----------------------------------------------------------

  int descriptor() const { return file_; }  // until it is published
  int folder() const { return folder_.get(); }
  std::string const& sibling() const { return sibling_; }  // its name in the destination's folder

 private:
  void create(mode_t mode);
  void keepPermissions();
  void close();
  void rename(Publication publication);
  void renameExclusively();
  void dropSibling() noexcept;
  [[noreturn]] void fail(char const* what);

  std::filesystem::path const destination_;  // for what is told of a failure
  std::string const name_;
  Descriptor const folder_;
  std::string sibling_;
  int file_ = -1;
  bool flushed_ = false;
  bool siblingExists_ = false;
  bool published_ = false;
};

}  // namespace tolva
