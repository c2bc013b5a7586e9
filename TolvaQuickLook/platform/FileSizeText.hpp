// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace tolva {

/// A size in bytes as a file manager shows it: "Zero KB", "1 byte", "999 bytes", "184 KB", "1.5 MB", "1.23 GB". A
/// value.
///
/// Decimal units; KB without decimals, MB with at most one, GB and above with at most two; half to even; what rounds up
/// to 1000 takes the next unit. A negative size is the text of its magnitude behind "-".
std::string fileSizeText(std::int64_t bytes);

}  // namespace tolva
