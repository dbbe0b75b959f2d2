// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/CodeSignVerifier.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;

std::string read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, const std::string& text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// A bundle, and a code-signing tool that answers what the test wants and counts its runs. The real
// tool's verdicts are tested with the tool; here is tested when it is asked and what is made of its
// answer.
class Verification : public testing::Test {
 protected:
  static constexpr const char* kRightAnswer =
      "sha256sum \"$2\"/Contents/Linux/Tool | cut -d' ' -f1";

  Verification() {
    write(bundle_ + "/Contents/Info.plist",
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
          "version=\"1.0\"><dict><key>CFBundleExecutable</key>"
          "<string>Tool</string></dict></plist>\n");
    write(executable_, "first content");
    acceptWith(kRightAnswer);
  }

  // Runs the shell commands; their output is the tool's.
  void acceptWith(const std::string& commands) {
    write(tool_, "#!/bin/sh\nPATH=/usr/bin:/bin\necho \"$@\" >> " + runs_ + "\n" + commands + "\n");
    fs::permissions(tool_, fs::perms::owner_all);
  }

  int toolRuns() const {
    std::istringstream lines(read(runs_));
    int count = 0;
    for (std::string line; std::getline(lines, line);) ++count;
    return count;
  }

  TemporaryFolder folder_;
  std::string bundle_ = folder_ / "My.app";
  std::string executable_ = bundle_ + "/Contents/Linux/Tool";
  std::string tool_ = folder_ / "tool";
  std::string runs_ = folder_ / "runs";
  HelperVerifier verifier_{tool_};
};

TEST_F(Verification, RunsTheToolOnceForAnUnchangedHelper) {
  EXPECT_TRUE(verifier_.verifyHelperAtPath(executable_));
  EXPECT_TRUE(verifier_.verifyHelperAtPath(executable_));
  EXPECT_EQ(toolRuns(), 1);
  EXPECT_EQ(read(runs_), "--verify " + bundle_ + "\n");
}

TEST_F(Verification, RunsTheToolAgainWhenTheFileHasChanged) {
  ASSERT_TRUE(verifier_.verifyHelperAtPath(executable_));
  write(executable_, "second content");
  auto second = verifier_.verifyHelperAtPath(executable_);
  ASSERT_TRUE(second);
  EXPECT_EQ(toolRuns(), 2);
  EXPECT_EQ(second->bytes->size(), std::string("second content").size());
}

TEST_F(Verification, KeepsTheOldDigestWhenTheNewContentIsNotSigned) {
  ASSERT_TRUE(verifier_.verifyHelperAtPath(executable_));
  write(executable_, "tampered");
  acceptWith("exit 1");
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
  // The first content is back: its digest is still the kept one, so nothing has to be asked.
  write(executable_, "first content");
  int before = toolRuns();
  EXPECT_TRUE(verifier_.verifyHelperAtPath(executable_));
  EXPECT_EQ(toolRuns(), before);
}

TEST_F(Verification, RefusesWhenTheToolSawOtherBytes) {
  acceptWith("echo 0000000000000000000000000000000000000000000000000000000000000000");
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
}

TEST_F(Verification, RefusesWhenTheToolSaysNothingOfTheBytes) {
  acceptWith("exit 0");
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
}

TEST_F(Verification, RefusesWhenTheToolFailsWhateverItSays) {
  acceptWith(std::string(kRightAnswer) + "\nexit 1");
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
  acceptWith(std::string(kRightAnswer) + "\nkill -KILL $$");
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
  EXPECT_EQ(toolRuns(), 2);
}

TEST_F(Verification, GivesTheToolNoEnvironment) {
  ::setenv("HOIST_TEST_INHERITED", "yes", 1);
  acceptWith("[ -z \"$HOIST_TEST_INHERITED\" ] && " + std::string(kRightAnswer));
  EXPECT_TRUE(verifier_.verifyHelperAtPath(executable_));
  ::unsetenv("HOIST_TEST_INHERITED");
}

TEST_F(Verification, RefusesAToolThatCannotBeRun) {
  fs::remove(tool_);
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
}

TEST_F(Verification, RefusesAFileThatIsNotTheMainExecutableWithoutAskingTheTool) {
  write(bundle_ + "/Contents/Linux/Other", "other");
  EXPECT_FALSE(verifier_.verifyHelperAtPath(bundle_ + "/Contents/Linux/Other"));
  EXPECT_FALSE(verifier_.verifyHelperAtPath(bundle_ + "/Contents/Linux/../Linux/Tool"));
  EXPECT_FALSE(verifier_.verifyHelperAtPath(bundle_ + "/Contents/Linux//Tool"));
  EXPECT_FALSE(verifier_.verifyHelperAtPath(bundle_ + "/Contents/Linux/Missing"));
  EXPECT_EQ(toolRuns(), 0);
}

TEST_F(Verification, RefusesAPathWithoutABundleAboveIt) {
  write(folder_ / "plain/Tool", "plain");
  EXPECT_FALSE(verifier_.verifyHelperAtPath(folder_ / "plain/Tool"));
  for (const char* path : {"", "/", ".", "relative", "//", "/Tool"})
    EXPECT_FALSE(verifier_.verifyHelperAtPath(path));
  EXPECT_EQ(toolRuns(), 0);
}

TEST_F(Verification, RefusesAnExecutableThatIsALinkAFolderOrAPipe) {
  fs::rename(executable_, folder_ / "elsewhere");
  fs::create_symlink(folder_ / "elsewhere", executable_);
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
  fs::remove(executable_);
  fs::create_directory(executable_);
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
  fs::remove(executable_);
  ASSERT_EQ(::mkfifo(executable_.c_str(), 0700), 0);
  EXPECT_FALSE(verifier_.verifyHelperAtPath(executable_));
  EXPECT_EQ(toolRuns(), 0);
}

TEST_F(Verification, HandsOutBytesThatALaterChangeOfTheFileDoesNotTouch) {
  auto verified = verifier_.verifyHelperAtPath(executable_);
  ASSERT_TRUE(verified);
  write(executable_, "changed after the check");
  std::string kept(verified->bytes->size(), 0);
  ASSERT_EQ(::pread(verified->bytes->descriptor(), kept.data(), kept.size(), 0),
            static_cast<ssize_t>(kept.size()));
  EXPECT_EQ(kept, "first content");
}

TEST_F(Verification, HoldsOneHelperAndForgetsItForAnother) {
  fs::copy(bundle_, folder_ / "Second.app", fs::copy_options::recursive);
  ASSERT_TRUE(verifier_.verifyHelperAtPath(executable_));
  ASSERT_TRUE(verifier_.verifyHelperAtPath(folder_ / "Second.app/Contents/Linux/Tool"));
  ASSERT_TRUE(verifier_.verifyHelperAtPath(executable_));
  EXPECT_EQ(toolRuns(), 3);
}

TEST_F(Verification, HasNoDigestUntilASignatureHasVerified) {
  BundleExecutableVerifier verifier(tool_, bundle_);
  EXPECT_EQ(verifier.digestPath(), executable_);
  EXPECT_FALSE(verifier.digest());
  EXPECT_FALSE(verifier.verifyDigest());
  ASSERT_TRUE(verifier.valid());
  EXPECT_EQ(verifier.digest()->size(), 20u);
  EXPECT_EQ(verifier.digest(), verifier.generateDigest());
  EXPECT_TRUE(verifier.verifyDigest());
  fs::remove(executable_);
  EXPECT_FALSE(verifier.generateDigest());
  EXPECT_FALSE(verifier.verifyDigest());
}

TEST(EnclosingBundle, IsTheNearestFolderWithTheExtension) {
  EXPECT_EQ(enclosingBundlePath("/a/Outer.app/b/Inner.app/c/tool"), "/a/Outer.app/b/Inner.app");
  EXPECT_EQ(enclosingBundlePath("/a/b/tool"), "/");
  EXPECT_EQ(enclosingBundlePath("/a/.app/tool"), "/");
  EXPECT_EQ(enclosingBundlePath("/a/X.APP/tool"), "/");
  EXPECT_EQ(enclosingBundlePath("/a/X.app"), "/");
  EXPECT_EQ(enclosingBundlePath("/"), "/");
}

}  // namespace
}  // namespace hoist
