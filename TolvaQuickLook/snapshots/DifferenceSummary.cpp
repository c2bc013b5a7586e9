// SPDX-License-Identifier: Apache-2.0
#include "snapshots/DifferenceSummary.hpp"

namespace tolva {

DifferenceSummary::DifferenceSummary(std::span<TableDifference const> differences) {
  for (TableDifference const& difference : differences) {
    bool const compared = difference.compared();
    if (compared) {
      ++comparedTables;
      if (difference.inserted + difference.updated + difference.deleted > 0) ++changedTables;
      inserted += difference.inserted;
      updated += difference.updated;
      deleted += difference.deleted;
    }
    if (difference.kind == "table" && !compared) ++excludedTables;
    bool const schemaChanged =
        difference.status == "Added" || difference.status == "Removed" || difference.status == "Schema changed";
    if (schemaChanged) ++schemaChanges;
  }
}

}  // namespace tolva
