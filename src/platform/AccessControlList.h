// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/acl.h>

#include <utility>

namespace hoist {

// An access list, or none. A copy has a list of its own.
class AccessControlList {
 public:
  AccessControlList() = default;
  AccessControlList(const AccessControlList& other);
  AccessControlList(AccessControlList&& other) noexcept : list_(std::exchange(other.list_, {})) {}
  AccessControlList& operator=(AccessControlList other) noexcept {
    std::swap(list_, other.list_);
    return *this;
  }
  ~AccessControlList() {
    if (list_) ::acl_free(list_);
  }

  // That of the item; none when the permission bits say it all, for a link (never followed), and
  // when it cannot be read. Safe from any thread.
  static AccessControlList ofItem(const char* path);

  explicit operator bool() const { return list_ != nullptr; }
  // Borrowed; null when there is none.
  acl_t get() const { return list_; }

 private:
  acl_t list_ = nullptr;
};

}  // namespace hoist
