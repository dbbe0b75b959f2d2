// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace hoist {

// A test's own folder, removed with everything in it at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/hoist-test.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr)
      throw std::system_error(errno, std::system_category(), "mkdtemp");
    path_ = std::filesystem::canonical(pattern).string();
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  // Writes a file with the folders above it; an existing one keeps its inode and mode. Answers its
  // path.
  std::string write(const std::string& name, std::string_view content) const {
    const std::filesystem::path file = *this / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    if (!(stream << content).flush()) throw std::system_error(errno, std::system_category(), file);
    return file.string();
  }

 private:
  std::string path_;
};

}  // namespace hoist
