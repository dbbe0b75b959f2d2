// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "csrutil/SystemIntegrity.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace hoist::csrutil {
namespace {

constexpr char kGlobal[] = "8be4df61-93ca-11d2-aa0d-00e098032b8c";
constexpr char kLoader[] = "605dab50-e046-4300-abb6-3dd810dd8b23";

// A sysfs of our own making.
class SystemIntegrity : public testing::Test {
 protected:
  SystemIntegrity() {
    std::string pattern = testing::TempDir() + "csrutil.XXXXXX";
    sysfs_ = ::mkdtemp(pattern.data());
  }
  ~SystemIntegrity() override { std::filesystem::remove_all(sysfs_); }

  void write(const std::string& path, const std::string& contents) {
    std::filesystem::create_directories(std::filesystem::path(sysfs_ + path).parent_path());
    std::ofstream(sysfs_ + path, std::ios::binary) << contents;
  }
  void lockdown(const std::string& modes) { write("/kernel/security/lockdown", modes + "\n"); }
  void variable(const std::string& name, const std::string& vendor, char attributes, char value) {
    write("/firmware/efi/efivars/" + name + "-" + vendor, std::string{attributes, 0, 0, 0, value});
  }
  bool isProtected() const { return isSystemIntegrityProtected(sysfs_); }

  std::string sysfs_;
};

TEST_F(SystemIntegrity, IsOffWhereTheKernelSaysNothing) {
  EXPECT_FALSE(isProtected());
}

TEST_F(SystemIntegrity, FollowsTheLockdownInForce) {
  lockdown("[none] integrity confidentiality");
  EXPECT_FALSE(isProtected());
  lockdown("none [integrity] confidentiality");
  EXPECT_TRUE(isProtected());
  lockdown("none integrity [confidentiality]");
  EXPECT_TRUE(isProtected());
}

TEST_F(SystemIntegrity, FollowsSecureBoot) {
  variable("SecureBoot", kGlobal, 6, 0);
  EXPECT_FALSE(isProtected());
  variable("SecureBoot", kGlobal, 6, 1);
  EXPECT_TRUE(isProtected());
  lockdown("[none] integrity confidentiality");
  EXPECT_TRUE(isProtected());
}

TEST_F(SystemIntegrity, IsOffWhileTheFirmwareIsInSetupMode) {
  variable("SecureBoot", kGlobal, 6, 1);
  variable("SetupMode", kGlobal, 6, 1);
  EXPECT_FALSE(isProtected());
  variable("SetupMode", kGlobal, 6, 0);
  EXPECT_TRUE(isProtected());
}

TEST_F(SystemIntegrity, IsOffWhenTheLoaderDoesNotVerify) {
  variable("SecureBoot", kGlobal, 6, 1);
  variable("MokSBStateRT", kLoader, 6, 1);
  EXPECT_FALSE(isProtected());
  variable("MokSBStateRT", kLoader, 7, 1);  // a forgery: the loader's own is never kept
  EXPECT_TRUE(isProtected());
}

TEST_F(SystemIntegrity, DoesNotTakeAVariableOfAnotherLength) {
  write(std::string("/firmware/efi/efivars/SecureBoot-") + kGlobal, "\6");
  EXPECT_FALSE(isProtected());
  write(std::string("/firmware/efi/efivars/SecureBoot-") + kGlobal, std::string(4096, '\1'));
  EXPECT_FALSE(isProtected());
}

TEST(SystemIntegrityText, IsTheStatedOne) {
  EXPECT_EQ(statusText(true), "System Integrity Protection status: enabled.");
  EXPECT_EQ(statusText(false), "System Integrity Protection status: disabled.");
}

struct Outcome {
  int status;
  std::string output;
};

Outcome run(const std::string& arguments) {
  FILE* pipe = ::popen((HOIST_BUILD_DIR "/bin/csrutil " + arguments + " 2>&1").c_str(), "r");
  std::string output;
  for (int c; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  return {WEXITSTATUS(::pclose(pipe)), output};
}

TEST(CsrutilProgram, PrintsTheStatusOfThisSystem) {
  Outcome status = run("status");
  EXPECT_EQ(status.status, 0);
  EXPECT_EQ(status.output, statusText(isSystemIntegrityProtected()) + "\n");
}

TEST(CsrutilProgram, EndsWithTheUsageOnAnythingElse) {
  for (const char* arguments : {"", "enable", "status status", "''"}) {
    Outcome other = run(arguments);
    EXPECT_EQ(other.status, 2) << arguments;
    EXPECT_EQ(other.output, "usage: csrutil status\n") << arguments;
  }
  EXPECT_EQ(run("enable > /dev/full").status, 2);
  EXPECT_EQ(run("status > /dev/full").status, 1);
}

}  // namespace
}  // namespace hoist::csrutil
