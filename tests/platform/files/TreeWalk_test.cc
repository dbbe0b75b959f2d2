// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/TreeWalk.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>

#include "platform/SystemCall.h"
#include "support/TemporaryFolder.h"

namespace hoist::files {
namespace {

namespace fs = std::filesystem;

// More than are kept open.
constexpr int kLevels = 100;

class OpenFoldersOfADeepTree : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(folder_ / "elsewhere");
    std::string path = folder_ / "tree";
    for (int i = 0; i < kLevels; ++i) {
      paths_.push_back(path);
      fs::create_directory(path);
      folders_.enter(FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
      path += "/d";
    }
  }
  TemporaryFolder folder_;
  std::vector<std::string> paths_;
  OpenFolders folders_;
};

TEST_F(OpenFoldersOfADeepTree, AreFoundAgainOnTheWayUp) {
  for (int i = kLevels; i > 0; --i) {
    struct stat status, expected;
    ASSERT_EQ(::stat(paths_.back().c_str(), &expected), 0);
    auto left = folders_.leave();
    ASSERT_EQ(::fstat(left.get(), &status), 0);
    EXPECT_EQ(status.st_ino, expected.st_ino);
    paths_.pop_back();
  }
  EXPECT_TRUE(folders_.empty());
}

TEST_F(OpenFoldersOfADeepTree, AreNotLeftForWhereOneOfThemWasMoved) {
  fs::rename(paths_[10], folder_ / "elsewhere/d");
  for (int i = kLevels - 1; i > 10; --i) folders_.leave();
  std::optional<int> error;
  try {
    folders_.leave();
  } catch (const SystemCallError& raised) {
    error = raised.number();
  }
  EXPECT_EQ(error, ESTALE);
}

}  // namespace
}  // namespace hoist::files
