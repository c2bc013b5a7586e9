// SPDX-License-Identifier: Apache-2.0
#include "core/DatabaseSession.hpp"

#include "core/CompanionFiles.hpp"
#include "core/DatabaseInspection.hpp"
#include "platform/FilePath.hpp"
#include "platform/TaskCancellation.hpp"

namespace tolva {

DatabaseSession::DatabaseSession(std::filesystem::path const& databaseURL, std::shared_ptr<SessionGateway> gateway)
    : databaseURL_(absolutePath(databaseURL)),
      cancellation_(std::make_shared<CancellationHandle>()),
      gateway_(std::move(gateway)) {}

std::filesystem::path DatabaseSession::walURL() const { return walOf(databaseURL_); }

std::filesystem::path DatabaseSession::shmURL() const { return shmOf(databaseURL_); }

DatabaseInfo DatabaseSession::inspect(std::stop_token task) {
  Turn const turn(turns_);
  checkCancellation(task);
  if (closed_) throw DatabaseError("This database session is closed.");
  return inspectDatabase(databaseURL_, cancellation_, std::move(task));
}

void DatabaseSession::close() {
  Turn turn(turns_);
  closed_ = true;
  if (gateway_) turn.away([&] { gateway_->close(); });
}

}  // namespace tolva
