// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>

namespace tolva {

/// What a person reads of a failed request, whatever was thrown.
std::string errorText(std::exception_ptr const& error);

}  // namespace tolva
