// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <stop_token>

#include "core/CancellationHandle.hpp"
#include "core/DatabaseInfo.hpp"

namespace tolva {

/// What `DatabaseSession::inspect` answers, on a connection of its own that is installed in `cancellation`. `path` is
/// absolute.
DatabaseInfo inspectDatabase(std::filesystem::path const& path, std::shared_ptr<CancellationHandle> cancellation,
                             std::stop_token task);

}  // namespace tolva
