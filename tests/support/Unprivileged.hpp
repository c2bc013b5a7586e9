// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace tolva {

/// The text that `body` returns in a forked child without privileges: root hides every failure of a permission.
///
/// Run by root the child is nobody (65534, no groups), and what it needs lies in a folder that is `openToEverybody`;
/// run by anybody else it stays that user. Of a child that throws or dies the text says so: "(threw: ...)",
/// "(killed by signal 11)", "(left with 1)". Assertions inside `body` are lost; return what they would look at.
std::string asUnprivileged(std::function<std::string()> const& body);

}  // namespace tolva
