// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/attrlist/AttributeCalls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/SystemCall.h"
#include "platform/attrlist/StatxReply.h"
#include "platform/attrlist/WriteBack.h"

// The reading calls. A folder is read as the kernel reads it fastest: names by getdents64 into one
// buffer, then statx of each by the folder's descriptor, which spares the path walk (measured: a
// quarter of the time of statx by full path).

namespace hoist::attrlist {
namespace {

// Looking at an item must not mount what an automounter keeps behind it.
constexpr int kStatxFlags = AT_NO_AUTOMOUNT;

int look(int folder, const char* path, int flags, const AttributeSet& request,
         ItemAttributes& reply) {
  struct statx item;
  if (::statx(folder, path, kStatxFlags | flags, statxMask(request), &item) != 0) return -1;
  reply = {};
  translate(item, request, reply);
  return 0;
}

bool isSelfOrParent(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Takes the first of the names away.
const dirent64& takeName(std::span<char>& names) {
  auto item = reinterpret_cast<const dirent64*>(names.data());
  names = names.subspan(item->d_reclen);
  return *item;
}

// Fills in one entry; answers whether it is to be listed.
bool describe(int folder, const dirent64& item, const AttributeSet& request, BulkEntry& entry) {
  entry.name = item.d_name;
  entry.nameLength = std::strlen(item.d_name);
  if (look(folder, item.d_name, AT_SYMLINK_NOFOLLOW, request, entry.attributes) != 0) {
    if (errno == ENOENT) return false;
    // A folder that may be listed but not searched: its entries are known by name and type.
    entry.attributes.objectType = vnodeTypeOfEntry(item.d_type);
    entry.attributes.returned.common = ATTR_CMN_OBJTYPE;
  }
  entry.attributes.returned.common |= ATTR_CMN_NAME;
  return true;
}

std::atomic<AttributeCalls*> overridden = nullptr;

}  // namespace

BulkTurns::Turn BulkTurns::readNames(int folder, std::span<char> names) {
  MutexLock lock(mutex_);
  auto length = retryInterrupted([&] { return ::getdents64(folder, names.data(), names.size()); });
  return {length, ++last_};
}

BulkBuffer::BulkBuffer(std::size_t size) : BulkBuffer(ownTurns_, size) {}

BulkBuffer::BulkBuffer(BulkTurns& turns, std::size_t size)
    : turns_(turns), names_(new char[size]), size_(size) {
  entries_.reserve(kEntries);
}

ssize_t BulkBuffer::readNames(int folder) {
  auto turn = turns_.readNames(folder, {names_.get(), size_});
  length_ = static_cast<std::size_t>(std::max(turn.length, ssize_t{0}));
  number_ = turn.number;
  unread_ = {names_.get(), length_};
  return turn.length;
}

AttributeCalls::~AttributeCalls() = default;

int AttributeCalls::getattrlist(const char* path, const AttributeSet& request,
                                ItemAttributes& reply, std::uint32_t options) {
  // statx with an empty path and without AT_EMPTY_PATH fails with ENOENT, as it should.
  return look(AT_FDCWD, path, options & FSOPT_NOFOLLOW ? AT_SYMLINK_NOFOLLOW : 0, request, reply);
}

int AttributeCalls::fgetattrlist(int file, const AttributeSet& request, ItemAttributes& reply,
                                 std::uint32_t) {
  return look(file, "", AT_EMPTY_PATH, request, reply);
}

int AttributeCalls::setattrlist(const char* path, const ItemIdentity& expected,
                                std::uint32_t commonSet, const CommonValues& values,
                                ItemAttributes& after) {
  return writeBack(path, expected, commonSet, values, after);
}

int AttributeCalls::getattrlistbulk(int folder, const AttributeSet& request, BulkBuffer& buffer,
                                    std::uint32_t) {
  auto& entries = buffer.entries();
  entries.clear();
  // A batch of nothing but vanished names is not the end.
  while (entries.empty()) {
    if (buffer.unread().empty()) {
      auto length = buffer.readNames(folder);
      if (length <= 0) return static_cast<int>(length);
    }
    while (!buffer.unread().empty() && entries.size() < BulkBuffer::kEntries) {
      auto& item = takeName(buffer.unread());
      if (isSelfOrParent(item.d_name)) continue;
      if (!describe(folder, item, request, entries.emplace_back())) entries.pop_back();
    }
  }
  return static_cast<int>(entries.size());
}

int countEntries(int folder, std::uint64_t& count) {
  BulkBuffer buffer;
  ssize_t length;
  count = 0;
  while ((length = buffer.readNames(folder)) > 0) {
    while (!buffer.unread().empty()) count += !isSelfOrParent(takeName(buffer.unread()).d_name);
  }
  return length < 0 ? -1 : 0;
}

AttributeCalls& AttributeCalls::current() {
  static auto& system = *new AttributeCalls;
  auto calls = overridden.load(std::memory_order_acquire);
  return calls ? *calls : system;
}

AttributeCallsOverride::AttributeCallsOverride(AttributeCalls& calls)
    : previous_(overridden.exchange(&calls)) {}

AttributeCallsOverride::~AttributeCallsOverride() {
  overridden = previous_;
}

}  // namespace hoist::attrlist
