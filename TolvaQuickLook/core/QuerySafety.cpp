// SPDX-License-Identifier: Apache-2.0
#include "core/QuerySafety.hpp"

namespace tolva {}
