// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace tolva {

/// The kinds of picture that are decoded; whatever is none of them reaches no decoder at all.
enum class PictureFormat { png, jpeg, gif, webp, tiff, heif };

/// The format that the first bytes announce. HEIF stands for AVIF as well.
std::optional<PictureFormat> pictureFormat(std::span<std::uint8_t const> bytes);

}  // namespace tolva
