// SPDX-License-Identifier: Apache-2.0
#include "platform/SHA256.hpp"

#include <gtest/gtest.h>

#include "platform/Bytes.hpp"

namespace tolva {
namespace {

struct Vector {
  std::string says;
  std::string message;
  std::string digest;
};

// The published examples and short messages of NIST for SHA-256.
Vector const vectors[] = {
    {"an empty message", "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"one block", "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {"two blocks", "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
     "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
    {"four blocks",
     "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
     "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
    {"a million letters", std::string(1'000'000, 'a'),
     "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    {"one byte", "\xBD", "68325720aabd7c82f30f554b313d0570c95accbb7dc4b5aae11204c08ffe732b"},
    {"four bytes", "\xC9\x8C\x8E\x55", "7abc22c0ae5af26ce93dbb94433a0e0b2e119d014f8e7f65bd56c61ccccd9504"},
};

TEST(SHA256, DigestsTheExamplesOfTheStandard) {
  for (Vector const& vector : vectors) {
    SCOPED_TRACE(vector.says);
    EXPECT_EQ(sha256Text(vector.message), vector.digest);
    EXPECT_EQ(sha256Text(Bytes(vector.message.begin(), vector.message.end())), vector.digest);
  }
}

TEST(SHA256, GivesTheSameDigestForPieces) {
  for (std::size_t const piece : {1u, 63u, 64u, 65u, 4096u}) {
    for (Vector const& vector : vectors) {
      SCOPED_TRACE(vector.says + " in pieces of " + std::to_string(piece));
      SHA256 hash;
      for (std::size_t at = 0; at < vector.message.size(); at += piece)
        hash.update(std::string_view(vector.message).substr(at, piece));
      EXPECT_EQ(hexText(hash.finish()), vector.digest);
    }
  }
}

TEST(SHA256, BeginsANewMessageAfterADigest) {
  SHA256 hash;
  hash.update("abc");
  hash.finish();
  hash.update("abc");
  EXPECT_EQ(hexText(hash.finish()), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(SHA256, WritesTwoLowerCaseDigitsForEachByte) {
  EXPECT_EQ(hexText(Bytes{}), "");
  EXPECT_EQ(hexText(Bytes{0x00, 0x0A, 0xF0, 0xFF}), "000af0ff");
}

}  // namespace
}  // namespace tolva
