// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "platform/attrlist/Attributes.h"

namespace hoist::attrlist {

// One name of a folder, with its attributes. When the attributes were refused, only the type is
// returned, as the folder itself tells it.
struct BulkEntry {
  ItemAttributes attributes;
  // Points into the buffer; NUL-terminated.
  const char* name = nullptr;
  std::size_t nameLength = 0;

  bool hasAttributes() const { return (attributes.returned.common & ATTR_CMN_FILEID) != 0; }
};

// Where one bulk read keeps the entries of its current batch. One per read, one thread at a time.
class BulkBuffer {
 public:
  explicit BulkBuffer(std::size_t size = kDefaultSize);

  std::span<char> names() { return {names_.get(), size_}; }
  std::vector<BulkEntry>& entries() { return entries_; }
  const std::vector<BulkEntry>& entries() const { return entries_; }

 private:
  // About 500 names: more does not make reading faster, and the batch stays in the cache.
  static constexpr std::size_t kDefaultSize = 16384;

  std::unique_ptr<char[]> names_;
  std::size_t size_;
  std::vector<BulkEntry> entries_;
};

// The attribute calls of the original platform, supplied by statx, getdents64 and the calls that
// change single attributes. Each answers -1 with errno set when it fails. Links are described and
// changed themselves with FSOPT_NOFOLLOW, which setattrlist always implies. Safe from any thread.
// A test puts another implementation in front, to make one call fail.
class AttributeCalls {
 public:
  virtual ~AttributeCalls();

  // Answers 0 and the requested attributes that the item has. A request for the type alone costs
  // the file system nothing else.
  virtual int getattrlist(const char* path, const AttributeSet& request, ItemAttributes& reply,
                          std::uint32_t options);
  virtual int fgetattrlist(int file, const AttributeSet& request, ItemAttributes& reply,
                           std::uint32_t options);

  // Writes the values of the set to the item, all of them or, as far as the kernel lets it be taken
  // back, none. ESTALE when the path leads to another item than the expected one; ENOTSUP for a
  // value that Linux cannot set and that differs from the present one; EINVAL for a time whose
  // nanoseconds are out of range. Answers 0 and the attributes as they are afterwards.
  virtual int setattrlist(const char* path, const ItemIdentity& expected, std::uint32_t commonSet,
                          const CommonValues& values, ItemAttributes& after);

  // Fills the buffer with the next entries of an open folder, without "." and "..", and answers
  // their number; 0 at the end. Entries that vanish meanwhile are left out.
  virtual int getattrlistbulk(int folder, const AttributeSet& request, BulkBuffer& buffer,
                              std::uint32_t options);

  // What the program uses.
  static AttributeCalls& current();
};

// Counts the names of an open folder, without "." and "..", from where the folder stands. Answers
// -1 with errno set when it fails. Safe from any thread.
int countEntries(int folder, std::uint64_t& count);

// Puts the given calls in the place of the current ones while it lives. For tests; one at a time.
class AttributeCallsOverride {
 public:
  explicit AttributeCallsOverride(AttributeCalls& calls);
  ~AttributeCallsOverride();
  AttributeCallsOverride(const AttributeCallsOverride&) = delete;
  AttributeCallsOverride& operator=(const AttributeCallsOverride&) = delete;

 private:
  AttributeCalls* previous_;
};

}  // namespace hoist::attrlist
