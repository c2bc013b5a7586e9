// SPDX-License-Identifier: Apache-2.0
// What it takes to read a large table row by row into values.
#include "ReadRecords.hpp"
#include "measure.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  keepSecondThread();
  auto const connection = tolva::SQLiteConnection::open(argv[1], {});
  auto const began = timeNow();
  report(began, readRecords(*connection).c_str());
}
