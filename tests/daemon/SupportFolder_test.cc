// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What the daemon keeps in the product's local support folder, on a machine of the test's own.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "daemon/InstalledHelperTool.h"
#include "daemon/TesselHoister.h"
#include "locations/KLPath.h"
#include "platform/FilePaths.h"
#include "platform/files/NewFolder.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;

const HoistTools kNoTools{.codesign = "/nonexistent/codesign", .sample = "/nonexistent/sample"};
const std::string kSupport = "/var/lib/Kelvo";

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

class SupportFolder : public testing::Test {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
    volumes_->mount("tmpfs", "/var/lib", "tmpfs", 0, "mode=755");
    volumes_->mount("tmpfs", *homeDirectory(0), "tmpfs", 0, "mode=700");
  }

  std::optional<TestVolumes> volumes_;
  LogRecorder log_;
};

TEST_F(SupportFolder, IsTheUsersAloneInsideTheAdministrators) {
  TesselHoister(501, kNoTools).createBootApplicationSupportPathForUser();
  auto folder = statusOf(kSupport + "/501");
  EXPECT_EQ(folder.st_mode, S_IFDIR | 0700u);
  EXPECT_EQ(folder.st_uid, 501u);
  auto above = statusOf(kSupport);
  EXPECT_EQ(above.st_mode, S_IFDIR | 0775u);
  EXPECT_EQ(above.st_uid, 0u);
  EXPECT_EQ(above.st_gid, files::groupAccount("admin").value_or(0));
}

TEST_F(SupportFolder, OfRootIsNamedByItsNumber) {
  TesselHoister(0, kNoTools).createBootApplicationSupportPathForUser();
  EXPECT_EQ(statusOf(kSupport + "/0").st_uid, 0u);
}

TEST_F(SupportFolder, ThatIsThereIsLeftAsItIs) {
  TesselHoister hoister(501, kNoTools);
  hoister.createBootApplicationSupportPathForUser();
  std::ofstream(kSupport + "/501/kept") << "content";
  auto before = statusOf(kSupport + "/501");
  hoister.createBootApplicationSupportPathForUser();
  EXPECT_EQ(statusOf(kSupport + "/501").st_ino, before.st_ino);
  EXPECT_TRUE(fs::exists(kSupport + "/501/kept"));
  EXPECT_EQ(log_.texts(classification::Caution), std::vector<std::string>());
}

TEST_F(SupportFolder, ThatCannotBeMadeIsRaisedAbout) {
  fs::create_directory(kSupport);
  std::ofstream(kSupport + "/501") << "in the way";
  auto exception =
      raisedBy([] { TesselHoister(501, kNoTools).createBootApplicationSupportPathForUser(); });
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "Cannot create support folder");
  EXPECT_EQ(detailOf(exception, "Folder"), kSupport + "/501");
}

class InstalledHelperTool : public SupportFolder {
 protected:
  void SetUp() override {
    SupportFolder::SetUp();
    if (IsSkipped()) return;
    KLPath::bootKLApplicationSupportPath()->create();
    contents_ = *KLPath::bootKLApplicationSupportPath()->pathToFile("KelvoHelper.app/Contents");
  }
  void install() {
    fs::create_directories(contents_ + "/Linux");
    std::ofstream(contents_ + "/Info.plist") << infoPlist_;
    std::ofstream(contents_ + "/Linux/KelvoHelper") << "a program";
  }

  // Read before the home folder, where the sources may be, is hidden.
  const std::string infoPlist_ = [] {
    std::ifstream file(HOIST_SOURCE_DIR "/examples/helper/Info.plist");
    return std::string{std::istreambuf_iterator<char>(file), {}};
  }();
  std::string contents_;
};

TEST_F(InstalledHelperTool, IsTheMainExecutableOfTheBundleInTheSupportFolder) {
  install();
  auto info = InstalledHelperToolInfo();
  ASSERT_TRUE(info);
  EXPECT_TRUE(info->isRegularFile());
  EXPECT_EQ(info->path(), contents_ + "/Linux/KelvoHelper");
  EXPECT_EQ(InstalledHelperToolInfo(), info);
}

TEST_F(InstalledHelperTool, IsLookedForAgainWhenItIsGone) {
  install();
  auto info = InstalledHelperToolInfo();
  ASSERT_TRUE(info);
  fs::remove_all(contents_);
  EXPECT_FALSE(InstalledHelperToolInfo());
  install();
  ASSERT_TRUE(InstalledHelperToolInfo());
  EXPECT_NE(InstalledHelperToolInfo(), info);
}

TEST_F(InstalledHelperTool, IsNothingInABundleWithoutAnExecutable) {
  install();
  fs::remove(contents_ + "/Linux/KelvoHelper");
  EXPECT_FALSE(InstalledHelperToolInfo());
}

}  // namespace
}  // namespace hoist
