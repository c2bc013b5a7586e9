// SPDX-License-Identifier: Apache-2.0
// What it takes to back a database up into FOLDER, as a whole process: `backup FILE FOLDER`.
#include <cstdio>
#include <filesystem>

#include "core/DatabaseBackup.hpp"
#include "core/SQLiteConnection.hpp"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  auto const connection = tolva::SQLiteConnection::open(argv[1], {});
  std::filesystem::path const backup = tolva::makeBackup(*connection, argv[2], {});
  std::printf("%ju bytes\n", std::filesystem::file_size(backup));
  std::filesystem::remove(backup);
}
