// SPDX-License-Identifier: Apache-2.0
// What it takes to answer Database Info for a file, from its opening to its closing.
#include <cstdio>

#include "core/DatabaseSession.hpp"
#include "measure.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  keepSecondThread();
  tolva::DatabaseSession session(argv[1]);
  auto const began = timeNow();
  tolva::DatabaseInfo const info = session.inspect({});
  char done[200];
  std::snprintf(done, sizeof done,
                "pages of %d, %d tables, %d views, %d indexes, %d triggers, read-only %d, foreign keys %d",
                static_cast<int>(info.pageSize), static_cast<int>(info.tables), static_cast<int>(info.views),
                static_cast<int>(info.indexes), static_cast<int>(info.triggers), info.inspectionReadOnly,
                info.capabilities.hasForeignKeys.value_or(false));
  report(began, done);
}
