// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/FileDescriptor.h"

namespace hoist::platform {

// A folder seen as an application bundle. It belongs to somebody else and may change at any moment:
// each answer is true of the instant when it was asked. No link inside the bundle is followed.
// Never throws for what it finds in the file system. Safe to use from any thread.
class Bundle {
 public:
  // None when the path is no folder that can be opened.
  static std::optional<Bundle> bundleWithPath(std::string_view path);

  // As given, without slashes at its end.
  const std::string& bundlePath() const { return path_; }

  // The bundle path, a slash and where its main executable stands, a regular file; none when
  // Info.plist names none or there is no such file.
  std::optional<std::string> executablePath() const;
  // The same as a file URL.
  std::optional<std::string> executableURL() const;

  // A text of Info.plist; none when it cannot be read or holds no such text.
  std::optional<std::string> infoText(const char* key) const;
  std::optional<std::string> bundleIdentifier() const { return infoText("CFBundleIdentifier"); }

 private:
  Bundle(std::string path, FileDescriptor folder)
      : path_(std::move(path)), folder_(std::move(folder)) {}

  std::string path_;
  // Held open, so that the bundle stays the same folder whatever its path comes to mean.
  FileDescriptor folder_;
};

}  // namespace hoist::platform
