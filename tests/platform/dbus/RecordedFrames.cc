// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "RecordedFrames.h"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace hoist::dbus {

const std::vector<RecordedFrame>& recordedFrames() {
  static auto& frames = *[] {
    auto* all = new std::vector<RecordedFrame>;
    std::filesystem::path folder(HOIST_SOURCE_DIR "/tests/platform/dbus/recorded");
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      std::ifstream file(entry.path(), std::ios::binary);
      all->push_back({entry.path().stem(), Bytes(std::istreambuf_iterator<char>(file), {})});
    }
    std::ranges::sort(*all, {}, &RecordedFrame::name);
    return all;
  }();
  return frames;
}

FileDescriptors someFiles(std::size_t count) {
  FileDescriptors files;
  while (files.size() < count) files.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  return files;
}

}  // namespace hoist::dbus
