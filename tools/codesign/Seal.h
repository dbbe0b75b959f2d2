// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/Digest.h"

namespace hoist::codesign {

// Where the seal and the signature over it stand in a bundle; the only two files that the seal does
// not hold.
inline constexpr std::string_view kSealFolder = "Contents/_CodeSignature";
inline constexpr std::string_view kSealPath = "Contents/_CodeSignature/CodeResources";
inline constexpr std::string_view kSignaturePath = "Contents/_CodeSignature/CodeSignature";

// The permission bits that are sealed: set-user-ID, set-group-ID and the sticky bit are not, so
// that installing a bundle does not break its seal.
inline constexpr unsigned kSealedModeBits = 0777;

struct SealedFile {
  platform::SHA256Digest digest;
  std::uint64_t size;
  unsigned mode;

  bool operator==(const SealedFile&) const = default;
};

// Everything inside a bundle. Keys are paths relative to it, as bytes.
struct Seal {
  std::map<std::string, SealedFile> files;
  std::map<std::string, unsigned> folders;   // their modes
  std::map<std::string, std::string> links;  // their targets, as bytes

  bool operator==(const Seal&) const = default;
};

// The seal as an XML property list; the same seal gives the same bytes.
std::string textOfSeal(const Seal& seal);

// The reverse: a pure function of bytes that may be hostile. Throws Problem for what is no seal,
// down to a key too many.
Seal sealOfText(std::string_view text);

}  // namespace hoist::codesign
