// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace tolva {

/// The SHA-256 digest (FIPS 180-4) of a message that comes in pieces. Used by one thread.
class SHA256 {
 public:
  using Digest = std::array<std::uint8_t, 32>;

  SHA256();
  ~SHA256();
  SHA256(SHA256 const&) = delete;
  SHA256& operator=(SHA256 const&) = delete;

  void update(std::span<std::uint8_t const> piece);
  void update(std::string_view piece);

  /// The digest of all pieces so far. The next piece begins a new message.
  Digest finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Two lower-case hexadecimal digits for each byte. Any thread.
std::string hexText(std::span<std::uint8_t const> bytes);

/// The digest of a whole message as `hexText`, 64 characters. Any thread.
std::string sha256Text(std::span<std::uint8_t const> message);
std::string sha256Text(std::string_view message);

}  // namespace tolva
