// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nettle/sha1.h>
#include <nettle/sha2.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace hoist::platform {

using SHA1Digest = std::array<std::uint8_t, SHA1_DIGEST_SIZE>;
using SHA256Digest = std::array<std::uint8_t, SHA256_DIGEST_SIZE>;

// A digest of bytes that come in pieces. Not safe to use from several threads at once.
class SHA1Hasher {
 public:
  SHA1Hasher();
  void update(std::span<const std::uint8_t> bytes);
  // The digest of everything so far; the hasher then begins anew.
  SHA1Digest finish();

 private:
  sha1_ctx context_;
};

class SHA256Hasher {
 public:
  SHA256Hasher();
  void update(std::span<const std::uint8_t> bytes);
  SHA256Digest finish();

 private:
  sha256_ctx context_;
};

SHA1Digest sha1(std::span<const std::uint8_t> bytes);
SHA256Digest sha256(std::span<const std::uint8_t> bytes);

// The digest of everything that the descriptor's file holds, read from its beginning; the offset
// stays. Throws SystemCallError; EFBIG when there are more than the maximum number of bytes.
SHA1Digest sha1OfFile(int fd, std::uint64_t maximumBytes);
SHA256Digest sha256OfFile(int fd, std::uint64_t maximumBytes);

// Lower-case hexadecimal digits.
std::string hexadecimal(std::span<const std::uint8_t> bytes);

}  // namespace hoist::platform
