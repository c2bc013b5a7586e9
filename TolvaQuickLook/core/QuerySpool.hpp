// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "core/SQLiteConnection.hpp"
#include "core/SQLiteStatement.hpp"
#include "core/SQLiteValue.hpp"
#include "platform/Bytes.hpp"

namespace tolva {

/// The rows of one result on disk, so that of a result of any length only a page is in memory: a private database of
/// its own in the user's temporary folder, deleted with the object.
///
/// In the executor's turn. Nothing but a crash leaves the file, and nobody reads it afterwards: so it is never flushed,
/// and a transaction is undone from memory.
class QuerySpool {
 public:
  using Row = std::vector<SQLiteValue>;

  /// Throws `DatabaseError`: code 14 where the temporary folder is missing, full or not the user's own.
  QuerySpool();
  QuerySpool(QuerySpool const&) = delete;
  QuerySpool& operator=(QuerySpool const&) = delete;

  std::filesystem::path const& path() const { return file_.path; }

  // Filling -------------------------------------------------------------------------------------

  /// Copies rows into the spool, for one transaction.
  class Writer {
   public:
    explicit Writer(QuerySpool& spool);

    /// Copies the current row of `result`, with the heads of its large values, and returns the bytes that it took.
    std::int64_t add(std::int64_t position, SQLiteStatement const& result);

   private:
    std::int64_t addHeads(std::int64_t position, SQLiteStatement const& result);
    std::int64_t addHead(std::int64_t position, SQLiteStatement const& result, int column, std::int64_t budget);

    SQLiteStatement insertRow_;
    SQLiteStatement insertHead_;
    Row row_;  // these two keep their memory from row to row
    std::string payload_;
  };

  /// Runs `body`, which takes a `Writer`, in one transaction and returns its result; what it wrote is gone if it fails
  /// or `task` is cancelled.
  template <class Body>
  auto fill(Body const& body, std::stop_token task) {
    auto const write = [&] {
      Writer writer(*this);
      return body(writer);
    };
    return connection_->transaction(write, std::move(task));
  }

  // Reading -------------------------------------------------------------------------------------

  /// The rows from position `first` up to and without `end`, in order, until they come to 4 MiB as they are stored; the
  /// row that reaches it is the last.
  std::vector<Row> rows(std::int64_t first, std::int64_t end) const;

  /// One row; none if it is not there.
  std::optional<Row> row(std::int64_t position) const;

  /// What was captured of a large value.
  struct Head {
    std::string type;    // "text" or "blob"
    std::int64_t total;  // bytes of the whole value
    Bytes bytes;
  };

  std::optional<Head> head(std::int64_t position, std::int64_t column) const;

 private:
  /// The file of a spool, empty and closed to everybody else from the moment when it is made.
  struct File {
    File();
    ~File();
    File(File const&) = delete;
    File& operator=(File const&) = delete;

    std::filesystem::path const path;
  };

  File const file_;  // outlives the connection
  std::shared_ptr<SQLiteConnection> const connection_;
};

}  // namespace tolva
