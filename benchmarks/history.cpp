// SPDX-License-Identifier: Apache-2.0
// What it takes to list the history of a database with 500 snapshots: `history FOLDER`, which makes the database and the
// snapshots in FOLDER when they are not there yet.
#include <cstdio>
#include <filesystem>

#include "core/SQLiteConnection.hpp"
#include "measure.h"
#include "snapshots/SnapshotService.hpp"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::filesystem::path const folder = std::filesystem::path(argv[1]) / "history";
  std::filesystem::path const database = folder / "history.db";
  tolva::SnapshotService service(folder / "store");
  if (std::filesystem::create_directories(folder)) {
    tolva::SQLiteConnection::open(database, {.readOnly = false, .create = true})->execute("CREATE TABLE t(a)");
    for (int taken = 0; taken < 500; ++taken) service.create(database, {}, {}, {}, {});
  }
  auto const began = timeNow();
  std::size_t const listed = service.history(database, {}).size();
  char done[40];
  std::snprintf(done, sizeof done, "%zu snapshots", listed);
  report(began, done);
}
