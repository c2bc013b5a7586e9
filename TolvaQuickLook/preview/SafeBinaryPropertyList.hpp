// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace tolva {

/// Whether bytes that begin with "bplist00" may be shown to a reader of binary property lists.
///
/// Every object that the top one reaches lies inside the data and is of a kind that such lists have; there are at most
/// 2,048 objects, 2,048 steps from object to object and 32 levels. A shared object counts each time that it is
/// reached, and so does its text, for a reader copies it as often: more than 262,144 bytes are refused, since nobody
/// shows so long a list. Pure; any thread.
bool isSafeBinaryPropertyList(std::span<std::uint8_t const> list);

/// Whether a safe list has nothing that an XML list cannot hold as it is: no text with a character that XML does not
/// know (https://www.w3.org/TR/xml/#NT-Char), with half of a surrogate pair or with a byte beyond ASCII where that is
/// claimed, and no date outside of the years 0 to 9999. A reader would cut such a text or leave something out without
/// a word. Pure; any thread.
bool fitsXML(std::span<std::uint8_t const> list);

}  // namespace tolva
