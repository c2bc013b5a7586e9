// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "extension/PreviewReply.hpp"
#include "platform/Bytes.hpp"

namespace tolva {

/// The reply's text drawn as a PNG (https://www.w3.org/TR/png-3/): black on white, in a monospace face, as the reply's
/// content size in points scaled to at most `size` pixels a side, and to 4,096 pixels however large `size` is. What
/// does not fit is cut off at the margin. Throws `std::runtime_error` when it cannot be drawn.
Bytes drawReply(QLPreviewReply const& reply, int size);

}  // namespace tolva
