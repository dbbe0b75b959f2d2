// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/AccessControlList.h"

#include <acl/libacl.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <new>
#include <string>

#include "platform/FileDescriptor.h"

namespace hoist {

AccessControlList::AccessControlList(const AccessControlList& other) {
  if (!other.list_) return;
  list_ = ::acl_dup(other.list_);
  if (!list_) throw std::bad_alloc();
}

AccessControlList AccessControlList::ofItem(const char* path) {
  AccessControlList list;
  FileDescriptor item(::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!item || ::fstat(item.get(), &status) != 0 || S_ISLNK(status.st_mode)) return list;
  // libacl follows links; this one leads to the very item that was looked at.
  auto link = "/proc/self/fd/" + std::to_string(item.get());
  if (::acl_extended_file(link.c_str()) > 0) {
    list.list_ = ::acl_get_file(link.c_str(), ACL_TYPE_ACCESS);
  }
  return list;
}

}  // namespace hoist
