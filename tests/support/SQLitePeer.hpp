// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "platform/Descriptor.hpp"

namespace tolva {

/// Another process with a connection of its own to a database, which does what it is told: locks within one process
/// prove nothing about what the rest of the machine may do. It never waits for a lock. Ends with the object.
class SQLitePeer {
 public:
  explicit SQLitePeer(std::filesystem::path const& database);
  ~SQLitePeer();
  SQLitePeer(SQLitePeer const&) = delete;
  SQLitePeer& operator=(SQLitePeer const&) = delete;

  /// Runs `sql`, which is one line, and returns "ok" or "error CODE MESSAGE" with SQLite's extended code.
  std::string exec(std::string const& sql);

  /// The result of `sql` as `rowsAsText` writes it, or "error CODE MESSAGE".
  std::string rows(std::string const& sql);

  /// Ends it as a crash would, without a close. It takes nothing more.
  void kill();

 private:
  std::string ask(std::string const& line);
  std::string readLine();
  std::string readBytes(std::size_t size);
  void receive();

  Descriptor channel_;    // one end of a socket pair; the other is the peer's standard input and output
  std::string received_;  // and not yet taken
  pid_t process_ = -1;
};

}  // namespace tolva
