// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Export.hpp"

namespace tolva {

/// A universally unique identifier (RFC 9562), 16 bytes in the order of its text. A value; all zero until it is made.
class TOLVA_EXPORT UUID {
 public:
  using Octets = std::array<std::uint8_t, 16>;

  UUID() = default;
  explicit UUID(Octets const& octets) : octets_(octets) {}

  /// A new random one (version 4). Any thread.
  static UUID make();

  /// Reads exactly 36 characters, 8-4-4-4-12 hexadecimal digits of either case, of any version.
  static std::optional<UUID> parse(std::string_view text);

  /// 36 characters, in upper case.
  std::string text() const;

  Octets const& octets() const { return octets_; }

  auto operator<=>(UUID const&) const = default;

 private:
  Octets octets_{};
};

}  // namespace tolva
