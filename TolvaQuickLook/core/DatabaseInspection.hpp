// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <stop_token>

#include "core/CancellationHandle.hpp"
#include "core/DatabaseInfo.hpp"

namespace tolva {

/// Looks through a database, read-only and in one transaction, for at most 3 seconds, 4,096 tables and 4 MiB of their
/// statements; what lies beyond the tables and the bytes leaves the inspection incomplete.
///
/// The connection is its own, installed in `cancellation`. Throws "Database Info took too long. ..." where it notices
/// the deadline itself, and as cancelled where a statement was stopped at it. `path` is absolute.
DatabaseInfo inspectDatabase(std::filesystem::path const& path, std::shared_ptr<CancellationHandle> cancellation,
                             std::stop_token task);

}  // namespace tolva
