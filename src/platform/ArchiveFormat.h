// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/PropertyListCheck.h"
#include "values/Coder.h"

// What the archiver and the unarchiver of keyed archives agree on: the layout of the original
// platform's NSKeyedArchiver. docs/keyed-archives.md shows one.
namespace hoist::platform {

inline constexpr std::string_view kArchiverName = "NSKeyedArchiver";
inline constexpr std::int64_t kArchiveVersion = 100'000;

inline constexpr const char* kVersionKey = "$version";
inline constexpr const char* kArchiverKey = "$archiver";
inline constexpr const char* kTopKey = "$top";
inline constexpr const char* kObjectsKey = "$objects";
inline constexpr const char* kClassKey = "$class";
inline constexpr const char* kClassNameKey = "$classname";
inline constexpr const char* kClassesKey = "$classes";
// The text at place 0 of the objects: a reference to it is no object.
inline constexpr std::string_view kNullText = "$null";

inline constexpr const char* kStringKey = "NS.string";
inline constexpr const char* kDataKey = "NS.data";
inline constexpr const char* kBytesKey = "NS.bytes";
inline constexpr const char* kTimeKey = "NS.time";  // seconds since 2001
inline constexpr const char* kKeysKey = "NS.keys";
inline constexpr const char* kElementsKey = "NS.objects";
inline constexpr std::int64_t kArchiveEpoch = 978'307'200;  // 2001 in seconds since 1970

// Objects inside each other. The recursion of objects that code themselves needs about a kilobyte
// of stack a level; threads here have 128.
inline constexpr unsigned kMaximumArchiveDepth = 64;

// A key of an object as it stands in the archive: one that begins like a key of the format gets
// another "$".
inline std::string archiveKey(std::string_view key) {
  return key.starts_with('$') ? "$" + std::string(key) : std::string(key);
}

// Throws DecodeError for a class that is neither one of the allowed ones nor derived from one.
// "NSObject" allows every class, "NSNumber" booleans too.
void requireAllowed(const std::string& className, const AllowedClasses& allowed);

// Counts what a decoded object would be if nothing in it were shared, so that a few bytes cannot
// stand for a description or a comparison without end.
class ExpansionBudget {
 public:
  explicit ExpansionBudget(std::size_t inputSize)
      : nodesLeft_(kMaximumExpandedNodes + inputSize),
        bytesLeft_(kMaximumExpandedBytes + inputSize) {}

  struct Extent {
    std::uint64_t nodes = 0;
    std::uint64_t bytes = 0;
  };

  // Throws DecodeError when it is too much.
  void spend(Extent extent);
  Extent spent() const { return spent_; }
  Extent spentSince(Extent before) const {
    return {spent_.nodes - before.nodes, spent_.bytes - before.bytes};
  }

 private:
  std::uint64_t nodesLeft_;
  std::uint64_t bytesLeft_;
  Extent spent_;
};

}  // namespace hoist::platform
