// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "codesign/Codesign.h"
#include "codesign/Identities.h"
#include "codesign/Problem.h"
#include "support/TemporaryFolder.h"

namespace hoist::codesign {

// What a problem says, or "" when the code raises none.
inline std::string problemOf(const std::function<void()>& code) {
  try {
    code();
    return "";
  } catch (const Problem& problem) {
    return problem.what();
  }
}

// A bundle with a bit of everything: executable, resources, links, an empty folder.
class SmallBundle {
 public:
  SmallBundle() {
    write("Contents/Info.plist",
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>\n"
          "<key>CFBundleIdentifier</key><string>com.kelvo.small</string>\n"
          "<key>CFBundleExecutable</key><string>small</string>\n</dict></plist>\n");
    write("Contents/Linux/small", "#!/bin/sh\nexit 0\n");
    std::filesystem::permissions(*this / "Contents/Linux/small", std::filesystem::perms(0755));
    write("Contents/Resources/empty", "");
    write("Contents/Resources/large", std::string(300'000, 'x'));
    std::filesystem::create_directory(*this / "Contents/Plugins");
    std::filesystem::create_symlink("Resources/large", *this / "Contents/link");
    std::filesystem::create_directory_symlink("/nowhere", *this / "Contents/dangling");
  }

  std::string path() const { return folder_ / "Small.app"; }
  std::string operator/(const std::string& name) const { return path() + '/' + name; }
  std::string write(const std::string& name, std::string_view content) const {
    return folder_.write("Small.app/" + name, content);
  }
  const TemporaryFolder& folder() const { return folder_; }

 private:
  TemporaryFolder folder_;
};

}  // namespace hoist::codesign
