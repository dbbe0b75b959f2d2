// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace hoist::codesign {

// What a bundle may make this tool do. Its owner is not trusted, so everything has an end; all are
// picked, far above what real bundles need. A bundle beyond them can neither be signed nor
// verified.

// Files, links and folders together.
inline constexpr std::uint64_t kMaximumEntries = 50'000;
// Content of all files, in bytes.
inline constexpr std::uint64_t kMaximumContentBytes = 4ull * 1024 * 1024 * 1024;
// Folders inside folders.
inline constexpr unsigned kMaximumDepth = 32;
// A link's target, in bytes; the kernel's own limit.
inline constexpr std::uint64_t kMaximumTargetBytes = 4095;

inline constexpr std::uint64_t kMaximumSealBytes = 16 * 1024 * 1024;

inline constexpr std::uint64_t kMaximumSignatureBytes = 256 * 1024;
inline constexpr int kMaximumCertificates = 16;
// Certificates between the signer's and the anchor.
inline constexpr int kMaximumChainDepth = 8;

inline constexpr std::uint64_t kMaximumAnchorFileBytes = 1024 * 1024;

// How long one run may take, in seconds.
inline constexpr unsigned kDefaultTimeLimit = 60;

}  // namespace hoist::codesign
