// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tolva {

/// `text`, below 2 GB of UTF-8, with every letter in lower case as The Unicode Standard maps it (section 3.13), the
/// same under every locale: two names that differ only in case become equal. Any thread.
std::string lowerUnicode(std::string_view text);

}  // namespace tolva
