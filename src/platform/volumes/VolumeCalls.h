// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include "platform/volumes/VolumeRecords.h"

namespace hoist::volumes {

// The calls of the original platform about mounted volumes, supplied by the mount table, statfs and
// what file systems tell about themselves. Each answers -1 with errno set when it fails. Safe from
// any thread. A test puts another implementation in front.
class VolumeCalls {
 public:
  virtual ~VolumeCalls();

  // Answers the number of mounted volumes; with a place to put them, describes them as far as there
  // is something to say without asking the volumes themselves: what fills in the rest is
  // statfsOfMount. A mount that lies under another one at the same place is left out: no path leads
  // to it.
  virtual int getfsstat(std::vector<VolumeStatistics>* statistics);
  // The volume that holds the item at the path; links are followed.
  virtual int statfs(const char* path, VolumeStatistics& statistics);
  // Asks the very mount of the record again. ENOENT when it is not mounted there any more.
  virtual int refresh(VolumeStatistics& statistics);
  // What the volume tells about itself. ENOENT as above.
  virtual int getattrlist(const VolumeStatistics& volume, VolumeAttributes& attributes);
  // Only the two sizes that change.
  virtual int getsizes(const VolumeStatistics& volume, VolumeAttributes& attributes);
  // Never succeeds while the volume is still mounted; never unmounts another one.
  virtual int unmount(const VolumeStatistics& volume, bool forcibly);

  // What the program uses.
  static VolumeCalls& current();
};

// Puts the given calls in the place of the current ones while it lives. For tests; one at a time.
class VolumeCallsOverride {
 public:
  explicit VolumeCallsOverride(VolumeCalls& calls);
  ~VolumeCallsOverride();
  VolumeCallsOverride(const VolumeCallsOverride&) = delete;
  VolumeCallsOverride& operator=(const VolumeCallsOverride&) = delete;

 private:
  VolumeCalls* previous_;
};

}  // namespace hoist::volumes
