// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

namespace tolva {

/// A moment as a person reads it: numeric date and short time, "11/15/2026, 9:41 PM", in the user's locale and zone.
///
/// The locale is the first of LC_ALL, LC_TIME and LANG that is set and not empty; "C", "POSIX" and none read like
/// en_US. The zone is the C library's (TZ, else /etc/localtime). The pattern is the one that CLDR prefers for "yMdjm"
/// (https://unicode.org/reports/tr35/tr35-dates.html); the narrow blank that newer data puts before AM and PM is a
/// plain one. Never fails: a locale that cannot be read gives "2026-11-15 21:41Z". Any thread.
std::string dateText(std::chrono::system_clock::time_point time);

/// The same for a locale ("de_DE") and a zone ("Europe/Berlin"). A zone that does not exist is GMT.
std::string dateText(std::chrono::system_clock::time_point time, std::string const& locale, std::string const& zone);

}  // namespace tolva
