// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "platform/FileDescriptor.h"

namespace hoist::sample {

// The file that a report goes to, opened long before there is anything to write, with the real
// user's rights. What it held stays until replaceContents. A file that open() made and that was
// never written is removed again.
class OutputFile {
 public:
  // Makes the file (0644 less the umask) or opens the one that is there, which must be a regular
  // file; a symbolic link is not followed. Throws Refusal.
  static OutputFile open(std::string path);
  static OutputFile standardOutput();

  OutputFile(OutputFile&& other) noexcept = default;
  OutputFile& operator=(OutputFile&&) = delete;
  ~OutputFile();

  // Whatever their names.
  bool isSameFileAs(const OutputFile& other) const;
  // Throws Refusal when the file system does.
  void replaceContents(std::string_view text);

 private:
  enum class Kind { Made, Found, Stream };
  OutputFile(FileDescriptor file, std::string path, Kind kind)
      : file_(std::move(file)), path_(std::move(path)), kind_(kind) {}
  void removeIfStillMine() noexcept;

  FileDescriptor file_;
  std::string path_;
  Kind kind_;
  bool written_ = false;
};

}  // namespace hoist::sample
