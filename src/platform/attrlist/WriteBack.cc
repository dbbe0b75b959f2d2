// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/attrlist/WriteBack.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"
#include "platform/attrlist/StatxReply.h"

// Linux has one call for each attribute where the original has one for all. So the whole change is
// checked first, against the very item that was read (a descriptor, compared by device, file number
// and creation time, never a second walk of the path), then made in an order in which no one ever
// has more rights than before or after: restricting flags off, rights that are to go, owner, mode,
// times, flags on. When a step fails, the steps before it are undone, with the same care for
// rights.
//
// A chown drops the set-ID bits of a file; they are put back, because only the owner was to change.

#ifndef SYS_fchmodat2
#define SYS_fchmodat2 452  // Linux 6.6; the same number on every architecture
#endif

namespace hoist::attrlist {
namespace {

constexpr unsigned kPermissions = 07777;
constexpr unsigned kSetIDBits = S_ISUID | S_ISGID;
constexpr std::uint32_t kNoID = ~0U;
constexpr long kNanosecondsPerSecond = 1'000'000'000;
// The inode flags that stand for file flags that can be set.
constexpr int kSettableInodeFlags = FS_NODUMP_FL | FS_IMMUTABLE_FL | FS_APPEND_FL;
constexpr int kRestrictingInodeFlags = FS_IMMUTABLE_FL | FS_APPEND_FL;
constexpr std::uint32_t kSettableFlags =
    UF_NODUMP | UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND;
constexpr unsigned kMask = STATX_BASIC_STATS | STATX_BTIME;

bool equal(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

int inodeFlagsOf(std::uint32_t flags) {
  int inodeFlags = 0;
  if (flags & UF_NODUMP) inodeFlags |= FS_NODUMP_FL;
  if (flags & (UF_IMMUTABLE | SF_IMMUTABLE)) inodeFlags |= FS_IMMUTABLE_FL;
  if (flags & (UF_APPEND | SF_APPEND)) inodeFlags |= FS_APPEND_FL;
  return inodeFlags;
}

std::string linkToDescriptor(int file) {
  return "/proc/self/fd/" + std::to_string(file);
}

class Change {
 public:
  Change(FileDescriptor file, std::uint32_t set, const CommonValues& values)
      : file_(std::move(file)), set_(set), values_(values) {}

  bool readPresent() { return look(present_); }
  bool isItem(const ItemIdentity& expected) const;
  // Whether everything that is asked for can be done; makes ready for the flags.
  bool check();
  bool apply();
  // Puts back what apply has changed so far.
  void undo();
  // The item as it is now.
  bool describe(ItemAttributes& now) const;

 private:
  bool asks(std::uint32_t attribute) const { return (set_ & attribute) != 0; }
  bool look(struct statx& item) const {
    return ::statx(file_.get(), "", AT_EMPTY_PATH, kMask, &item) == 0;
  }
  bool isOfOverlay() const;
  bool checkUnsettable() const;
  bool checkFlags();
  bool changeOwnerAndMode();
  bool keepsSetIDBits(unsigned mode) const;
  bool setOwner(std::uint32_t owner, std::uint32_t group);
  bool setMode(unsigned mode);
  bool setModifiedTime(const timespec& time);
  bool setInodeFlags(int flags);
  bool fail(int error) const {
    errno = error;
    return false;
  }

  FileDescriptor file_;  // O_PATH
  const std::uint32_t set_;
  const CommonValues& values_;
  struct statx present_;

  // Open only while flags change.
  FileDescriptor flagFile_;
  int presentInodeFlags_ = 0;
  int wantedInodeFlags_ = 0;

  bool flagsChanged_ = false;
  bool ownerChanged_ = false;
  bool modeChanged_ = false;
  bool timeChanged_ = false;
};

bool Change::isItem(const ItemIdentity& expected) const {
  if (expected.device != deviceNumber(present_) || expected.fileID != present_.stx_ino)
    return false;
  bool knowsCreation = (present_.stx_mask & STATX_BTIME) && !equal(expected.createdTime, {});
  return !knowsCreation || equal(expected.createdTime, timeOf(present_.stx_btime)) || isOfOverlay();
}

// There an item gets a new creation time when it is copied up to be written to.
bool Change::isOfOverlay() const {
  struct statfs volume;
  return ::fstatfs(file_.get(), &volume) == 0 && volume.f_type == OVERLAYFS_SUPER_MAGIC;
}

bool Change::check() {
  // To the kernel that number means "leave it".
  if (asks(ATTR_CMN_OWNERID) && values_.ownerID == kNoID) return fail(EINVAL);
  if (asks(ATTR_CMN_GRPID) && values_.groupID == kNoID) return fail(EINVAL);
  if (asks(ATTR_CMN_MODTIME) &&
      (values_.modifiedTime.tv_nsec < 0 || values_.modifiedTime.tv_nsec >= kNanosecondsPerSecond)) {
    // Among them UTIME_NOW and UTIME_OMIT, which are no times.
    return fail(EINVAL);
  }
  return checkUnsettable() && (!asks(ATTR_CMN_FLAGS) || checkFlags());
}

bool Change::checkUnsettable() const {
  if (asks(ATTR_CMN_SCRIPT) && values_.script != 0) return fail(ENOTSUP);
  if (asks(ATTR_CMN_CRTIME)) {
    auto created = present_.stx_mask & STATX_BTIME ? timeOf(present_.stx_btime) : timespec{};
    if (!equal(values_.createdTime, created)) return fail(ENOTSUP);
  }
  if (asks(ATTR_CMN_CHGTIME) && !equal(values_.attributeChangedTime, timeOf(present_.stx_ctime))) {
    return fail(ENOTSUP);
  }
  bool isLink = S_ISLNK(present_.stx_mode);
  if (isLink && asks(ATTR_CMN_ACCESSMASK) &&
      (values_.access & kPermissions) != (present_.stx_mode & kPermissions)) {
    return fail(ENOTSUP);
  }
  return true;
}

bool Change::checkFlags() {
  auto present = flagsOfAttributes(present_.stx_attributes);
  if ((values_.flags ^ present) & ~kSettableFlags) return fail(ENOTSUP);
  if (inodeFlagsOf(values_.flags) == inodeFlagsOf(present)) return true;
  // On a device the call would go to its driver, a link has no flags.
  if (!S_ISREG(present_.stx_mode) && !S_ISDIR(present_.stx_mode)) return fail(ENOTSUP);
  flagFile_.reset(::open(linkToDescriptor(file_.get()).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!flagFile_) return false;
  if (::ioctl(flagFile_.get(), FS_IOC_GETFLAGS, &presentInodeFlags_) != 0) {
    return fail(errno == ENOTTY ? ENOTSUP : errno);
  }
  wantedInodeFlags_ = (presentInodeFlags_ & ~kSettableInodeFlags) | inodeFlagsOf(values_.flags);
  return true;
}

bool Change::apply() {
  // Flags alone can be exchanged at once, unless the file system forbids it for what is immutable.
  if (flagFile_ && set_ == ATTR_CMN_FLAGS && setInodeFlags(wantedInodeFlags_)) return true;
  if (flagFile_ && (presentInodeFlags_ & kRestrictingInodeFlags) != 0) {
    if (!setInodeFlags(presentInodeFlags_ & ~kRestrictingInodeFlags)) return false;
    flagsChanged_ = true;
  }
  if (!changeOwnerAndMode()) return false;
  if (asks(ATTR_CMN_MODTIME) && !equal(values_.modifiedTime, timeOf(present_.stx_mtime))) {
    timeChanged_ = true;  // It takes two calls on some file systems.
    if (!setModifiedTime(values_.modifiedTime)) return false;
  }
  return !flagFile_ || setInodeFlags(wantedInodeFlags_);
}

bool Change::changeOwnerAndMode() {
  auto owner = asks(ATTR_CMN_OWNERID) ? values_.ownerID : present_.stx_uid;
  auto group = asks(ATTR_CMN_GRPID) ? values_.groupID : present_.stx_gid;
  bool changesOwner = owner != present_.stx_uid || group != present_.stx_gid;
  auto presentMode = present_.stx_mode & kPermissions;
  auto mode = asks(ATTR_CMN_ACCESSMASK) ? values_.access & kPermissions : presentMode;
  bool hasMode = !S_ISLNK(present_.stx_mode);

  if (changesOwner) {
    // The new owner and group must not have what only the old ones had, not even for a moment.
    auto kept = presentMode & mode;
    if (hasMode && kept != presentMode) {
      if (!setMode(kept)) return false;
      modeChanged_ = true;
    }
    if (!setOwner(owner, group)) return false;
    ownerChanged_ = true;
  }
  bool lostBits = changesOwner && (mode & kSetIDBits) != 0;
  if (hasMode && (mode != presentMode || lostBits)) {
    if (!setMode(mode)) return false;
    modeChanged_ = true;
    if ((mode & kSetIDBits) != 0) return keepsSetIDBits(mode);
  }
  return true;
}

// The set-group-ID bit of a group that its owner does not belong to is dropped without a word.
bool Change::keepsSetIDBits(unsigned mode) const {
  struct statx item;
  if (!look(item)) return false;
  return ((item.stx_mode ^ mode) & kSetIDBits) == 0 || fail(EPERM);
}

void Change::undo() {
  if (timeChanged_) setModifiedTime(timeOf(present_.stx_mtime));
  auto mode = present_.stx_mode & kPermissions;
  if (ownerChanged_) {
    // The old owner and group must not get back more than they had.
    if (modeChanged_ && asks(ATTR_CMN_ACCESSMASK)) setMode(mode & values_.access);
    setOwner(present_.stx_uid, present_.stx_gid);
  }
  if (ownerChanged_ || modeChanged_) setMode(mode);
  if (flagsChanged_) setInodeFlags(presentInodeFlags_);
}

bool Change::describe(ItemAttributes& now) const {
  struct statx item;
  if (!look(item)) return false;
  now = {};
  translate(item, {.common = ~0U, .directory = ~0U, .file = ~0U}, now);
  return true;
}

bool Change::setOwner(std::uint32_t owner, std::uint32_t group) {
  return ::fchownat(file_.get(), "", owner, group, AT_EMPTY_PATH) == 0;
}

bool Change::setMode(unsigned mode) {
  if (::syscall(SYS_fchmodat2, file_.get(), "", mode, AT_EMPTY_PATH) == 0) return true;
  if (errno != ENOSYS) return false;
  return ::chmod(linkToDescriptor(file_.get()).c_str(), mode) == 0;
}

bool Change::setModifiedTime(const timespec& time) {
  timespec times[2] = {{0, UTIME_OMIT}, time};
  auto set = [&] { return ::utimensat(file_.get(), "", times, AT_EMPTY_PATH) == 0; };
  struct statx item;
  if (!set() || !look(item)) return false;
  if (equal(timeOf(item.stx_mtime), time)) return true;
  // The file system keeps coarser times, or it is one of the many FUSE programs that quietly do
  // nothing unless both times are set.
  times[0] = timeOf(item.stx_atime);
  return set();
}

bool Change::setInodeFlags(int flags) {
  return ::ioctl(flagFile_.get(), FS_IOC_SETFLAGS, &flags) == 0;
}

}  // namespace

int writeBack(const char* path, const ItemIdentity& expected, std::uint32_t commonSet,
              const CommonValues& values, ItemAttributes& after) {
  after = {};
  FileDescriptor file(::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!file) return -1;
  Change change(std::move(file), commonSet & kWritableCommonAttributes, values);
  if (!change.readPresent()) return -1;
  if (!change.isItem(expected)) {
    errno = ESTALE;
    return -1;
  }
  if (!change.check()) return -1;
  if (change.apply()) return change.describe(after) ? 0 : -1;
  int error = errno;
  change.undo();
  change.describe(after);
  errno = error;
  return -1;
}

}  // namespace hoist::attrlist
