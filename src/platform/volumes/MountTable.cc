// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/volumes/MountTable.h"

#include <libmount.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/SystemCall.h"

// libmount reads the kernel's table and adds what only the tools of the system know: the options
// that begin with "x-" stand in its own file under /run.

namespace hoist::volumes {
namespace {

using Table = std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)>;

// Types that libmount counts as pseudo file systems, but where people keep files.
constexpr std::array<std::string_view, 4> kBrowsablePseudoTypes = {"tmpfs", "ramfs", "overlay",
                                                                   "virtiofs"};
// Network file systems that libmount does not know as such.
constexpr std::array<std::string_view, 12> kFurtherNetworkTypes = {
    "ceph",       "fuse.ceph", "fuse.glusterfs", "fuse.s3fs", "fuse.rclone", "fuse.davfs2",
    "fuse.davfs", "davfs",     "lustre",         "beegfs",    "orangefs",    "fuse.gcsfuse"};

std::string textOr(const char* text, const char* fallback = "") {
  return text ? text : fallback;
}

bool hasOptionIn(const char* options, const char* name) {
  return options && mnt_optstr_get_option(options, name, nullptr, nullptr) == 0;
}

template <class Names>
bool contains(const Names& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool isHidden(libmnt_fs* fs, std::string_view type) {
  // All of them: the kernel's and the tools'.
  if (hasOptionIn(mnt_fs_get_options(fs), "x-gvfs-hide")) return true;
  if (type == "fuse" || type.starts_with("fuse.") || type.starts_with("fuseblk")) return false;
  return mnt_fs_is_pseudofs(fs) && !contains(kBrowsablePseudoTypes, type);
}

Mount mountOf(libmnt_fs* fs) {
  Mount mount;
  mount.id = static_cast<std::uint64_t>(mnt_fs_get_id(fs));
  mount.source = textOr(mnt_fs_get_source(fs), "none");
  mount.mountPoint = textOr(mnt_fs_get_target(fs));
  mount.root = textOr(mnt_fs_get_root(fs));
  mount.device = mnt_fs_get_devno(fs);
  mount.type = textOr(mnt_fs_get_fstype(fs));
  mount.hidden = isHidden(fs, mount.type);
  mount.local = !mnt_fs_is_netfs(fs) && !contains(kFurtherNetworkTypes, mount.type);
  mount.options = textOr(mnt_fs_get_fs_options(fs));
  return mount;
}

}  // namespace

std::vector<Mount> readMountTable() {
  Table table(mnt_new_table(), &mnt_unref_table);
  if (!table) throw SystemCallError(ENOMEM, "mnt_new_table", "");
  // Negative errno; a file system that is mounted twice is listed twice, as it should be.
  if (int error = mnt_table_parse_mtab(table.get(), nullptr); error < 0) {
    throw SystemCallError(-error, "mnt_table_parse_mtab", "");
  }
  std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)> iterator(mnt_new_iter(MNT_ITER_FORWARD),
                                                                  &mnt_free_iter);
  std::vector<Mount> mounts;
  libmnt_fs* fs = nullptr;
  while (mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0) mounts.push_back(mountOf(fs));
  return mounts;
}

}  // namespace hoist::volumes
