// SPDX-License-Identifier: Apache-2.0
#include "transfer/FileTransfer.hpp"

namespace tolva {

FileTransfer::FileTransfer() : cancellation_(std::make_shared<CancellationHandle>()) {}

FileTransfer::~FileTransfer() = default;

}  // namespace tolva
