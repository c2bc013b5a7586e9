// SPDX-License-Identifier: Apache-2.0
#include "preview/PluginInspectorDate.hpp"

#include <fmt/format.h>

#include "platform/DigitForm.hpp"

namespace tolva {

std::optional<std::chrono::sys_days> PluginInspectorDate::parse(std::string_view text) {
  using namespace std::chrono;
  if (!hasDigitForm(text, "0000-00-00") || text < earliest || text > latest) return {};
  auto const number = [&](std::size_t from, std::size_t count) {
    int value = 0;
    for (char const digit : text.substr(from, count)) value = 10 * value + (digit - '0');
    return value;
  };
  year_month_day const date(year(number(0, 4)), month(static_cast<unsigned>(number(5, 2))),
                            day(static_cast<unsigned>(number(8, 2))));
  if (!date.ok()) return {};
  return sys_days(date);
}

std::string PluginInspectorDate::string(std::chrono::sys_days date) {
  std::chrono::year_month_day const parts(date);
  return fmt::format("{:04d}-{:02d}-{:02d}", static_cast<int>(parts.year()), static_cast<unsigned>(parts.month()),
                     static_cast<unsigned>(parts.day()));
}

}  // namespace tolva
