// SPDX-License-Identifier: Apache-2.0
#include "core/PreviewSummary.hpp"

#include <utility>

#include "platform/DateText.hpp"
#include "platform/FileSizeText.hpp"
#include "platform/JoinedText.hpp"

namespace tolva {

std::string PreviewSummary::text() const {
  std::string text = fileName + "\nSQLite Database\n\n";
  text += std::to_string(tables) + " tables · ";
  text += std::to_string(views) + " views · ";
  text += std::to_string(indexes) + " indexes\n";
  text += fileSizeText(fileSize);
  text += "\n\nTABLES\n" + joined(names, "\n");
  if (std::cmp_less(names.size(), tables)) text += "\n…";
  return text += "\n\nModified " + (modified ? dateText(*modified) : "Unknown");
}

}  // namespace tolva
