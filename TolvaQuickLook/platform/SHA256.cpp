// SPDX-License-Identifier: Apache-2.0
#include "platform/SHA256.hpp"

#include <sodium.h>

#include "platform/Sodium.hpp"

namespace tolva {
namespace {

std::span<std::uint8_t const> bytesOf(std::string_view text) {
  return {reinterpret_cast<std::uint8_t const*>(text.data()), text.size()};
}

}  // namespace

struct SHA256::State {
  crypto_hash_sha256_state hash;
};

SHA256::SHA256() : state_(std::make_unique<State>()) {
  prepareSodium();
  crypto_hash_sha256_init(&state_->hash);
}

SHA256::~SHA256() = default;

void SHA256::update(std::span<std::uint8_t const> piece) {
  crypto_hash_sha256_update(&state_->hash, piece.data(), piece.size());
}

void SHA256::update(std::string_view piece) { update(bytesOf(piece)); }

SHA256::Digest SHA256::finish() {
  Digest digest;
  crypto_hash_sha256_final(&state_->hash, digest.data());
  crypto_hash_sha256_init(&state_->hash);
  return digest;
}

std::string hexText(std::span<std::uint8_t const> bytes) {
  std::string text(2 * bytes.size() + 1, '\0');  // with a final NUL
  sodium_bin2hex(text.data(), text.size(), bytes.data(), bytes.size());
  text.pop_back();
  return text;
}

std::string sha256Text(std::span<std::uint8_t const> message) {
  prepareSodium();
  SHA256::Digest digest;
  crypto_hash_sha256(digest.data(), message.data(), message.size());
  return hexText(digest);
}

std::string sha256Text(std::string_view message) { return sha256Text(bytesOf(message)); }

}  // namespace tolva
