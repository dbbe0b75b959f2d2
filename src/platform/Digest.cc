// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Digest.h"

#include "platform/FileReading.h"

namespace hoist::platform {
namespace {

template <class Hasher>
auto digestOfMemory(std::span<const std::uint8_t> bytes) {
  Hasher hasher;
  hasher.update(bytes);
  return hasher.finish();
}

// By plain reads, never by a mapping: whoever owns the file could cut it short under the mapping
// and end the process with SIGBUS.
template <class Hasher>
auto digestOfFile(int fd, std::uint64_t maximumBytes) {
  Hasher hasher;
  readInChunks(fd, maximumBytes, [&](auto chunk) { hasher.update(chunk); });
  return hasher.finish();
}

}  // namespace

SHA1Hasher::SHA1Hasher() {
  sha1_init(&context_);
}

void SHA1Hasher::update(std::span<const std::uint8_t> bytes) {
  sha1_update(&context_, bytes.size(), bytes.data());
}

SHA1Digest SHA1Hasher::finish() {
  SHA1Digest digest;
  sha1_digest(&context_, digest.size(), digest.data());
  return digest;
}

SHA256Hasher::SHA256Hasher() {
  sha256_init(&context_);
}

void SHA256Hasher::update(std::span<const std::uint8_t> bytes) {
  sha256_update(&context_, bytes.size(), bytes.data());
}

SHA256Digest SHA256Hasher::finish() {
  SHA256Digest digest;
  sha256_digest(&context_, digest.size(), digest.data());
  return digest;
}

SHA1Digest sha1(std::span<const std::uint8_t> bytes) {
  return digestOfMemory<SHA1Hasher>(bytes);
}

SHA256Digest sha256(std::span<const std::uint8_t> bytes) {
  return digestOfMemory<SHA256Hasher>(bytes);
}

SHA1Digest sha1OfFile(int fd, std::uint64_t maximumBytes) {
  return digestOfFile<SHA1Hasher>(fd, maximumBytes);
}

SHA256Digest sha256OfFile(int fd, std::uint64_t maximumBytes) {
  return digestOfFile<SHA256Hasher>(fd, maximumBytes);
}

std::string hexadecimal(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const auto byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace hoist::platform
