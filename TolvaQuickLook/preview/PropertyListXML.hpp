// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tolva {

/// A property list, binary or XML, as an XML property list of at most 262,144 bytes. None for what is no list.
///
/// Only for lists that have been checked: a binary one that is safe and `fitsXML`, an XML one by `XMLOutline`, whose
/// `plain` is what to read here once it `isPropertyList`. Any thread, under any locale.
std::optional<std::string> propertyListXML(std::string_view checked);

}  // namespace tolva
