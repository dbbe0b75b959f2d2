// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Mutex.h"
#include "values/Value.h"

namespace hoist::platform {

class PreferenceDomain;

// Settings by domain and key, in one XML property list a domain: the effective user's own in the
// folder of configurations, and the machine-wide default behind it. Changes are held in memory, and
// seen at once by this process, until the domain is synchronised; what other processes write is
// seen by the next read. Safe from any thread.
//
// The user's files may be anything: what is no regular file, larger than 1 MiB or no dictionary
// counts as empty and is reported once. It is never overwritten: the first synchronisation that has
// something to write moves it aside, to the name with ".damaged" behind it.
class PreferenceStore {
 public:
  struct Folders {
    // None when the effective user has no home.
    std::optional<std::string> user;
    std::string machine;
  };

  // The process's store: $XDG_CONFIG_HOME, if it is an absolute path and the process runs with the
  // rights of whoever started it, else ~/.config of the effective user; then /etc/xdg.
  static PreferenceStore& shared();

  // A store whose folders stand still.
  explicit PreferenceStore(Folders folders);
  ~PreferenceStore();

  std::optional<Value> copyAppValue(std::string_view key, std::string_view name);
  // No value removes the key from the user's list; the machine-wide one shows again. Raises
  // hoist::Exception kInvalidArgumentException for a value that is no property list, and for a
  // domain that cannot be the name of a file.
  void setAppValue(std::string_view key, std::optional<Value> value, std::string_view name);
  // Writes what was set, merged into what is there by now. Answers false, after reporting why once,
  // when it could not; the changes are kept for the next time.
  bool appSynchronize(std::string_view name);

 private:
  PreferenceStore();
  Folders folders() REQUIRES(mutex_);
  std::optional<std::string> userFolder() REQUIRES(mutex_);
  PreferenceDomain& domain(std::string_view name) REQUIRES(mutex_);

  const std::optional<Folders> fixed_;
  Mutex mutex_;
  // Of the effective user at the last question: a process may change it.
  std::optional<uid_t> user_ GUARDED_BY(mutex_);
  std::optional<std::string> home_ GUARDED_BY(mutex_);
  // By the path of the user's file, which changes with the effective user.
  std::map<std::string, std::unique_ptr<PreferenceDomain>, std::less<>> domains_ GUARDED_BY(mutex_);
};

}  // namespace hoist::platform
