// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/BundleWalk.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "codesign/Limits.h"
#include "codesign/SmallBundle.h"

namespace hoist::codesign {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

// Notes what it is told, and lets a test do something at each step.
class Notes : public BundleVisitor {
 public:
  std::vector<std::string> lines;
  std::function<void(const std::string& path)> meanwhile = [](const std::string&) {};

  void visitFolder(const std::string& path, unsigned) override { note("folder " + path, path); }
  void visitLink(const std::string& path, const std::string& target) override {
    note("link " + path + " to " + target, path);
  }
  void visitFile(const std::string& path, int, const struct stat&) override {
    note("file " + path, path);
  }

 private:
  void note(std::string line, const std::string& path) {
    lines.push_back(std::move(line));
    meanwhile(path);
  }
};

class BundleWalkTest : public testing::Test {
 protected:
  std::string problemOfWalking() {
    return problemOf([&] { walkBundle(openBundle(bundle_.path()).get(), notes_); });
  }

  SmallBundle bundle_;
  Notes notes_;
};

TEST_F(BundleWalkTest, VisitsEverythingInTheOrderOfItsBytes) {
  EXPECT_EQ(problemOfWalking(), "");
  EXPECT_THAT(notes_.lines,
              ElementsAre("folder Contents", "file Contents/Info.plist", "folder Contents/Linux",
                          "file Contents/Linux/small", "folder Contents/Plugins",
                          "folder Contents/Resources", "file Contents/Resources/empty",
                          "file Contents/Resources/large", "link Contents/dangling to /nowhere",
                          "link Contents/link to Resources/large"));
}

TEST_F(BundleWalkTest, PassesOverSealAndSignatureOnly) {
  for (const char* name : {"CodeResources", "CodeSignature", "Other"}) {
    bundle_.write(std::string("Contents/_CodeSignature/") + name, "");
  }
  bundle_.write("CodeResources", "");
  EXPECT_EQ(problemOfWalking(), "");
  EXPECT_THAT(notes_.lines, testing::Contains("file Contents/_CodeSignature/Other"));
  EXPECT_THAT(notes_.lines, testing::Contains("file CodeResources"));
  EXPECT_THAT(notes_.lines, Not(testing::Contains(HasSubstr("_CodeSignature/Code"))));
}

TEST_F(BundleWalkTest, RefusesWhatIsNeitherFileNorFolderNorLink) {
  ASSERT_EQ(mkfifo((bundle_ / "Contents/fifo").c_str(), 0600), 0);
  EXPECT_EQ(problemOfWalking(), "Contents/fifo: is neither a file, a folder nor a link");
}

TEST_F(BundleWalkTest, RefusesADevice) {
  if (mknod((bundle_ / "Contents/zero").c_str(), S_IFCHR | 0666, 0x105) != 0) {
    GTEST_SKIP() << "no devices can be made here";
  }
  EXPECT_EQ(problemOfWalking(), "Contents/zero: is neither a file, a folder nor a link");
}

TEST_F(BundleWalkTest, EntersNoMount) {
  if (mount("none", (bundle_ / "Contents/Plugins").c_str(), "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "nothing can be mounted here";
  }
  EXPECT_EQ(problemOfWalking(), "Contents/Plugins: is on another file system");
  EXPECT_EQ(umount((bundle_ / "Contents/Plugins").c_str()), 0);
}

TEST_F(BundleWalkTest, RefusesFoldersNestedTooDeep) {
  std::string path = "Contents";
  for (unsigned depth = 1; depth < kMaximumDepth; ++depth) path += "/d";
  fs::create_directories(bundle_ / path);
  EXPECT_EQ(problemOfWalking(), "");
  fs::create_directories(bundle_ / path + "/d");
  EXPECT_THAT(problemOfWalking(), HasSubstr("nested too deep"));
}

TEST_F(BundleWalkTest, RefusesTooManyEntries) {
  const FileDescriptor folder(
      open((bundle_ / "Contents/Plugins").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(mknodat(folder.get(), "first", S_IFREG | 0644, 0), 0);
  for (std::uint64_t i = 1; i < kMaximumEntries; ++i) {
    ASSERT_EQ(linkat(folder.get(), "first", folder.get(), std::to_string(i).c_str(), 0), 0);
  }
  EXPECT_EQ(problemOfWalking(), "Contents/Plugins/: holds too many entries");
}

TEST_F(BundleWalkTest, RefusesTooMuchContent) {
  fs::resize_file(bundle_.write("Contents/a", ""), kMaximumContentBytes);
  EXPECT_THAT(problemOfWalking(), HasSubstr("makes the bundle too large"));
}

TEST_F(BundleWalkTest, NoticesAFolderThatChangesMeanwhile) {
  notes_.meanwhile = [&](const std::string& path) {
    if (path == "Contents/Resources/large") bundle_.write("Contents/Resources/aaa", "too late");
  };
  EXPECT_EQ(problemOfWalking(), "Contents/Resources/: was changed while it was read");
}

TEST_F(BundleWalkTest, FollowsNoLinkThatTakesAFoldersPlaceMeanwhile) {
  bundle_.folder().write("outside/secret", "");
  notes_.meanwhile = [&](const std::string& path) {
    if (path != "Contents/Plugins") return;
    fs::remove_all(bundle_ / "Contents/Resources");
    fs::create_directory_symlink(bundle_.folder() / "outside", bundle_ / "Contents/Resources");
  };
  EXPECT_NE(problemOfWalking(), "");
  EXPECT_THAT(notes_.lines, Not(testing::Contains(HasSubstr("secret"))));
}

TEST_F(BundleWalkTest, AFileThatVanishesIsAProblem) {
  notes_.meanwhile = [&](const std::string& path) {
    if (path == "Contents/Resources/empty") fs::remove(bundle_ / "Contents/Resources/large");
  };
  EXPECT_EQ(problemOfWalking(), "Contents/Resources/large: No such file or directory");
}

TEST_F(BundleWalkTest, OpensNoBundleThroughALink) {
  fs::create_directory_symlink(bundle_.path(), bundle_.folder() / "Link.app");
  EXPECT_NE(problemOf([&] { openBundle(bundle_.folder() / "Link.app"); }), "");
  EXPECT_NE(problemOf([&] { openBundle(bundle_.folder() / "Link.app/"); }), "");
  EXPECT_EQ(problemOf([&] { openBundle(bundle_.path() + "//"); }), "");
  EXPECT_NE(problemOf([&] { openBundle(bundle_ / "Contents/Info.plist"); }), "");
  EXPECT_NE(problemOf([&] { openBundle(""); }), "");
}

class DigestUnchangedTest : public testing::Test {
 protected:
  std::string problemWhen(const std::function<void()>& meanwhile) {
    const auto file = platform::openRegularFile(path_);
    struct stat status;
    EXPECT_EQ(fstat(file.get(), &status), 0);
    return problemOf(
        [&] { digestUnchanged("file", file.get(), status, [&](auto) { meanwhile(); }); });
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.write("file", std::string(300'000, 'x'));
};

TEST_F(DigestUnchangedTest, NoticesEveryKindOfChange) {
  const std::string changed = "file: was changed while it was read";
  EXPECT_EQ(problemWhen([] {}), "");
  EXPECT_EQ(problemWhen([&] { folder_.write("file", std::string(300'000, 'y')); }), changed);
  EXPECT_EQ(problemWhen([&] { ASSERT_EQ(chmod(path_.c_str(), 0755), 0); }), changed);
  EXPECT_EQ(problemWhen([&] { fs::resize_file(path_, 10); }), changed);
}

TEST_F(DigestUnchangedTest, DoesNotRunAfterAFileThatGrows) {
  std::uintmax_t size = 300'000;
  EXPECT_EQ(problemWhen([&] { fs::resize_file(path_, size += 300'000); }),
            "file: is too large or was changed while it was read");
}

}  // namespace
}  // namespace hoist::codesign
