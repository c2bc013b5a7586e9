// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "platform/Export.hpp"

namespace tolva {

/// Whether a script deserves a question before it runs. A warning for a person and no barrier: words inside string
/// literals count, and INSERT does not.
struct TOLVA_EXPORT QuerySafety {
  QuerySafety() = delete;

  /// Pure, any thread; takes time in proportion to the script.
  static bool needsConfirmation(std::string_view sql);
};

}  // namespace tolva
