// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "support/FileTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "platform/FileDescriptor.h"

namespace hoist::bench {
namespace {

void writeFiles(const std::string& folder, int from, int to, const std::string& content) {
  FileDescriptor open(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = from; i < to; ++i) {
    // Not in the order of the numbers, so that sorting has something to do.
    auto name = "document " + std::to_string(static_cast<unsigned>(i) * 2654435761U % 1000003) +
                " of " + std::to_string(i) + ".txt";
    FileDescriptor file(
        ::openat(open.get(), name.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644));
    if (!file || ::write(file.get(), content.data(), content.size()) < 0) {
      throw std::runtime_error("cannot write " + name);
    }
  }
}

}  // namespace

FileTree::FileTree(int folders, int files, int bytesOfFile)
    : top_(folder_ / "tree"), items_(folders + files) {
  std::string content(static_cast<std::size_t>(bytesOfFile), 'x');
  ::mkdir(top_.c_str(), 0755);
  if (folders == 0) writeFiles(top_, 0, files, content);
  for (int folder = 0; folder < folders; ++folder) {
    auto path = top_ + "/folder " + std::to_string(folder);
    ::mkdir(path.c_str(), 0755);
    writeFiles(path, static_cast<int>(long{files} * folder / folders),
               static_cast<int>(long{files} * (folder + 1) / folders), content);
  }
}

bool runQuietly(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace hoist::bench
