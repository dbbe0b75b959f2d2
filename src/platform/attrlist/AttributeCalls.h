// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "platform/Mutex.h"
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

// The order of the names when several threads read one folder: they take turns reading names, and
// know by a number which were read before which.
class BulkTurns {
 public:
  // The bytes of names that were read, as getdents64 answers it, and their number among all.
  struct Turn {
    ssize_t length;
    std::uint64_t number;
  };
  Turn readNames(int folder, std::span<char> names);

 private:
  Mutex mutex_;
  std::uint64_t last_ GUARDED_BY(mutex_) = 0;
};

// Where one thread's bulk read keeps names that it has read and the entries of its current batch.
class BulkBuffer {
 public:
  // Entries of a batch at most: what is made of them finds them in the processor's first cache.
  static constexpr std::size_t kEntries = 64;

  // For a folder that nobody else reads; the size is that of the names, in bytes.
  explicit BulkBuffer(std::size_t size = kDefaultSize);
  // The turns outlive the buffer.
  explicit BulkBuffer(BulkTurns& turns, std::size_t size = kDefaultSize);

  std::vector<BulkEntry>& entries() { return entries_; }
  const std::vector<BulkEntry>& entries() const { return entries_; }

  // The names that are no entries yet, as getdents64 has written them.
  std::span<char>& unread() { return unread_; }
  // Reads the next names of the open folder. Answers their bytes, 0 at the end, -1 with errno set
  // when it fails.
  ssize_t readNames(int folder);
  // Which names of the folder they are: later ones have a higher number.
  std::uint64_t number() const { return number_; }
  // Whether there may be more names in the folder: these fill the buffer.
  bool isFull() const { return length_ + kLongestName > size_; }

 private:
  // About 400 names: more does not make reading faster.
  static constexpr std::size_t kDefaultSize = 16384;
  static constexpr std::size_t kLongestName = 280;  // bytes of an entry of getdents64

  BulkTurns ownTurns_;
  BulkTurns& turns_;
  std::unique_ptr<char[]> names_;
  std::size_t size_;
  std::size_t length_ = 0;
  std::uint64_t number_ = 0;
  std::span<char> unread_;
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
  // nanoseconds are out of range, and for the owner or group -1; EPERM for a set-ID bit that the
  // kernel leaves out. Answers 0 and the attributes as they are afterwards; when it failed midway
  // and was undone, these too, because the change time has moved.
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
