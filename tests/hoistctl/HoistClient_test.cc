// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/HoistClient.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TemporaryFolder.h"

namespace hoist::ctl {
namespace {

namespace fs = std::filesystem;

class PathFromHere : public testing::Test {
 protected:
  PathFromHere() {
    fs::create_directories(folder_ / "outer/inner");
    fs::create_symlink("outer/inner", folder_ / "link");
    folder_.write("outer/tool", "");
    fs::create_symlink("tool", folder_ / "outer/name");
  }
  TemporaryFolder folder_;
};

TEST_F(PathFromHere, GoesUpFromWhereALinkLeads) {
  EXPECT_EQ(pathFromHere(folder_ / "link/../tool"), folder_ / "outer/tool");
  EXPECT_EQ(helperExecutable(folder_ / "link/../tool"), folder_ / "outer/tool");
  EXPECT_EQ(pathFromHere(folder_ / "link/.."), folder_ / "outer");
  EXPECT_EQ(pathFromHere(folder_ / "outer/inner/."), folder_ / "outer/inner");
}

TEST_F(PathFromHere, LeavesTheLastNameAsItIs) {
  EXPECT_EQ(pathFromHere(folder_ / "outer/name"), folder_ / "outer/name");
  EXPECT_EQ(pathFromHere(folder_ / "outer/inner/"), folder_ / "outer/inner");
  EXPECT_EQ(pathFromHere(folder_ / "outer/missing"), folder_ / "outer/missing");
  EXPECT_EQ(pathFromHere("/"), "/");
}

TEST_F(PathFromHere, IsThatOfTheTextWhereThereIsNothing) {
  EXPECT_EQ(pathFromHere("/nowhere/at/../all"), "/nowhere/all");
  EXPECT_EQ(pathFromHere("tool"), (fs::current_path() / "tool").string());
}

}  // namespace
}  // namespace hoist::ctl
