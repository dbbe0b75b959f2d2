// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/acl.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <new>
#include <utility>

#include "platform/attrlist/Attributes.h"

namespace hoist {

// The attributes that every item has, as they were read or as they have been edited since. The
// order and the widths of the fields are fixed.
struct CommonAttributes {
  std::uint32_t modified = 0;  // the edited attributes, as ATTR_CMN_ bits
  std::uint32_t script;
  timespec createdTime;
  timespec modifiedTime;
  timespec attributeChangedTime;
  std::uint32_t ownerID;
  std::uint32_t groupID;
  std::uint32_t fileFlags;
  std::uint16_t access;               // 12 bits: no type
  std::uint16_t effectiveAccess = 0;  // read 4, write 2, execute 1; asked for on demand
  acl_t acl = nullptr;                // owned; asked for on demand
  std::uint64_t fileID;
  std::uint32_t device;
  // RecordRef's, in what would be padding.
  std::atomic<std::uint32_t> references = 1;

  static constexpr std::uint32_t kAccessBits = 07777;

  explicit CommonAttributes(const attrlist::ItemAttributes& attributes);
  CommonAttributes(const CommonAttributes&) = delete;
  CommonAttributes& operator=(const CommonAttributes&) = delete;

  attrlist::ItemIdentity identity() const { return {device, fileID}; }
};

struct FileAttributes : CommonAttributes {
  explicit FileAttributes(const attrlist::ItemAttributes& attributes);

  std::uint32_t linkCount;
  std::uint64_t totalSize;      // bytes
  std::uint64_t allocatedSize;  // bytes
  std::uint64_t dataLength;     // bytes
};

struct DirectoryAttributes : CommonAttributes {
  explicit DirectoryAttributes(const attrlist::ItemAttributes& attributes);

  std::uint64_t entryCount;
  std::uint32_t linkCount;
  std::uint32_t mountStatus;  // bit 1: the root of a mount
};

static_assert(sizeof(CommonAttributes) == 96);
static_assert(sizeof(FileAttributes) == 128);
static_assert(sizeof(DirectoryAttributes) == 112);

// A shared record: flushing an item does not free it under a reader. The count stands in the record
// itself, because folders are read into hundreds of thousands of these. Copies may belong to
// different threads.
class RecordRef {
 public:
  RecordRef() = default;
  RecordRef(const RecordRef& other) : record_(other.record_) {
    if (record_) record_->references.fetch_add(1, std::memory_order_relaxed);
  }
  RecordRef(RecordRef&& other) noexcept : record_(std::exchange(other.record_, nullptr)) {}
  RecordRef& operator=(RecordRef other) noexcept {
    std::swap(record_, other.record_);
    return *this;
  }
  ~RecordRef() {
    if (record_ && record_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) free(record_);
  }

  template <class Record>
  static RecordRef make(const attrlist::ItemAttributes& attributes) {
    RecordRef made;
    made.record_ = new (::operator new(sizeof(Record))) Record(attributes);
    return made;
  }

  explicit operator bool() const { return record_ != nullptr; }
  CommonAttributes* operator->() const { return record_; }
  // As what it was made.
  template <class Record>
  const Record& as() const {
    return static_cast<const Record&>(*record_);
  }

 private:
  // No record of any kind owns more than the list.
  static void free(CommonAttributes* record);

  CommonAttributes* record_ = nullptr;
};

// An access-control list, which belongs to the record that this keeps alive.
struct BorrowedACL {
  RecordRef record;
  acl_t acl = nullptr;

  explicit operator bool() const { return acl != nullptr; }
};

}  // namespace hoist
