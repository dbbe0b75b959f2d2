// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/FileDescriptor.h"
#include "values/Value.h"

namespace hoist::platform {

// One property list of preferences on disk. Not safe from several threads; several processes agree
// through PreferenceFileLock.
class PreferenceFile {
 public:
  // Larger ones are not read. Picked.
  static constexpr std::uint64_t kMaximumBytes = 1024 * 1024;

  // Damaged: something stands there that is no preferences. Unreadable: nobody can tell.
  enum class State { Absent, Good, Damaged, Unreadable };

  explicit PreferenceFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  State state() const { return state_; }
  // Empty unless good.
  const Dictionary& entries() const { return entries_; }

  // Reads the file again if it has changed since.
  void refresh();
  // Reads it whatever is known of it.
  void reload();
  // What somebody should be told, once: that the file is damaged or unreadable.
  std::optional<std::string> takeReport() { return std::exchange(report_, std::nullopt); }

  // Puts the entries in place of the file, which keeps its mode; a damaged one is moved aside
  // first. Reads back what it wrote. Throws SystemCallError and PropertyListError; the old file is
  // then still there.
  void replace(const Dictionary& entries);

 private:
  // What tells one content of a path from the next without reading it.
  struct Mark {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = -1;
    std::int64_t changed = 0;  // nanoseconds
    bool operator==(const Mark&) const = default;
  };
  static std::optional<Mark> markOf(const std::string& path);

  void read();
  void fail(State state, const std::string& why);
  void moveAside();
  void writeBeside(const std::string& path, const Data& bytes) const;

  std::string path_;
  std::optional<Mark> mark_;
  bool known_ = false;
  State state_ = State::Absent;
  Dictionary entries_;
  mode_t mode_ = 0600;
  std::string complaint_;  // the last that was put into report_
  std::optional<std::string> report_;
};

// Keeps other processes that synchronise the same file waiting while it lives.
class PreferenceFileLock {
 public:
  // Throws SystemCallError; EWOULDBLOCK when another process holds it for a second.
  explicit PreferenceFileLock(const std::string& path);

 private:
  FileDescriptor file_;
};

}  // namespace hoist::platform
