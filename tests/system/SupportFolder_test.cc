// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The users' folders in the product's shared support folder, asked for over the wire, also where a
// member of the administrators' group, who may write there, has put something else in the way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "hoistctl/HoistClient.h"
#include "platform/files/NewFolder.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

constexpr unsigned kUser = 20001;
constexpr unsigned kAdministrator = 20002;
const std::string kSupport = "/var/lib/Kelvo";
const std::string kFolder = kSupport + "/20001";

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

class SupportFolder : public testing::Test {
 protected:
  SupportFolder() { fs::remove_all(kSupport); }
  ~SupportFolder() override { fs::remove_all(kSupport); }

  ClientResult ask(unsigned user = kUser) { return hoistctl(user, {"support-folder"}); }
  void expectRefusal(const ClientResult& result) {
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.json["error"], "the hoist could not make the folder; its log says why");
  }
  // What a member of the administrators' group does in the shared folder.
  void asAdministrator(std::vector<std::string> command) {
    std::vector<std::string> arguments{"--reuid=" + std::to_string(kAdministrator),
                                       "--regid=" + std::to_string(administrators()),
                                       "--clear-groups"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    auto result = runProgram("/usr/bin/setpriv", arguments);
    ASSERT_EQ(result.status, 0) << result.output;
  }
  static unsigned administrators() { return files::groupAccount("admin").value(); }

  RunningHoist hoist_;
};

TEST_F(SupportFolder, IsTheUsersAloneInsideOneOfTheAdministrators) {
  auto result = ask();
  ASSERT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_EQ(result.json["folder"], kFolder);
  auto folder = statusOf(kFolder);
  EXPECT_EQ(folder.st_mode, S_IFDIR | 0700u);
  EXPECT_EQ(folder.st_uid, kUser);
  auto above = statusOf(kSupport);
  EXPECT_EQ(above.st_mode, S_IFDIR | 0775u);
  EXPECT_EQ(above.st_uid, 0u);
  EXPECT_EQ(above.st_gid, administrators());
  // Nobody but root and the user gets in.
  EXPECT_NE(runProgram("/usr/bin/setpriv",
                       {"--reuid=20002", "--regid=20002", "--clear-groups", "/bin/ls", kFolder})
                .status,
            0);
}

TEST_F(SupportFolder, IsTheGroupAdminsWhereThereIsOne) {
  std::ofstream("/etc/group", std::ios::app) << "admin:x:20777:\n";
  EXPECT_EQ(ask().status, 0) << hoist_.log();
  EXPECT_EQ(statusOf(kSupport).st_gid, 20777u);
  std::ifstream groups("/etc/group");
  std::string kept, line;
  while (std::getline(groups, line)) {
    if (!line.starts_with("admin:")) kept += line + "\n";
  }
  std::ofstream("/etc/group") << kept;
}

TEST_F(SupportFolder, OfRootIsNamedByItsNumber) {
  auto result = ask(0);
  ASSERT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_EQ(statusOf(kSupport + "/0").st_uid, 0u);
  EXPECT_EQ(statusOf(kSupport + "/0").st_mode, S_IFDIR | 0700u);
}

TEST_F(SupportFolder, ThatIsThereIsLeftAsItIs) {
  ASSERT_EQ(ask().status, 0);
  std::ofstream(kFolder + "/kept") << "content";
  ::chmod(kFolder.c_str(), 0711);
  EXPECT_EQ(ask().status, 0);
  EXPECT_TRUE(fs::exists(kFolder + "/kept"));
  EXPECT_EQ(statusOf(kFolder).st_mode, S_IFDIR | 0711u);
  EXPECT_THAT(hoist_.log(),
              HasSubstr("(Caution) Folder " + kFolder + " belongs to user 20001 with mode 0711"));
}

TEST_F(SupportFolder, ThatItsUserCannotReachIsSaidToBeRefused) {
  ::chmod("/var/lib", 0700);
  auto result = ask();
  ::chmod("/var/lib", 0755);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.json["error"],
            kFolder + ": IO: failed to probe object vtype: Permission denied");
  EXPECT_EQ(statusOf(kFolder).st_uid, kUser);
}

TEST_F(SupportFolder, IsMadeForTwentyClientsAtOnce) {
  constexpr int kClients = 20;
  constexpr int kUsers = 5;
  std::vector<ClientResult> results(kClients);
  std::vector<std::thread> clients;
  for (int i = 0; i < kClients; ++i) {
    clients.emplace_back([&, i] { results[i] = ask(kUser + i % kUsers); });
  }
  for (auto& client : clients) client.join();
  for (const auto& result : results) EXPECT_EQ(result.status, 0) << result.json;
  for (unsigned user = kUser; user < kUser + kUsers; ++user) {
    auto folder = statusOf(kSupport + "/" + std::to_string(user));
    EXPECT_EQ(folder.st_mode, S_IFDIR | 0700u);
    EXPECT_EQ(folder.st_uid, user);
  }
  EXPECT_EQ(statusOf(kSupport).st_mode, S_IFDIR | 0775u);
  EXPECT_THAT(hoist_.log(), Not(HasSubstr("(Failure)")));
  EXPECT_THAT(hoist_.log(), Not(HasSubstr("(Caution)")));
}

TEST_F(SupportFolder, IsNotMadeThroughAPlantedLink) {
  ASSERT_EQ(ask(kAdministrator).status, 0);
  std::string precious = Sandbox::shared().folder() + "/precious";
  fs::create_directory(precious);
  for (const auto& target : {precious, Sandbox::shared().folder() + "/missing"}) {
    asAdministrator({"/bin/ln", "-s", target, kFolder});
    expectRefusal(ask());
    EXPECT_EQ(fs::read_symlink(kFolder), target);
    EXPECT_EQ(statusOf(kFolder).st_uid, kAdministrator);
    asAdministrator({"/bin/rm", kFolder});
  }
  EXPECT_EQ(statusOf(precious).st_mode, S_IFDIR | 0755u);
  EXPECT_EQ(statusOf(precious).st_uid, 0u);
  EXPECT_FALSE(fs::exists(Sandbox::shared().folder() + "/missing"));
  auto log = hoist_.log();
  EXPECT_THAT(log, HasSubstr("(Failure) Cannot create support folder"));
  EXPECT_THAT(log, HasSubstr("Folder: " + kFolder));
  EXPECT_THAT(log, HasSubstr("Item already exists; probably a file where a folder should be"));
  EXPECT_THAT(log, HasSubstr("NSFileTypeSymbolicLink"));
  fs::remove(precious);
}

TEST_F(SupportFolder, DoesNotTakeThePlaceOfAPlantedFile) {
  ASSERT_EQ(ask(kAdministrator).status, 0);
  asAdministrator({"/bin/sh", "-c", "echo mine > " + kFolder});
  expectRefusal(ask());
  EXPECT_EQ(statusOf(kFolder).st_uid, kAdministrator);
  EXPECT_TRUE(fs::is_regular_file(kFolder));
  EXPECT_THAT(hoist_.log(),
              HasSubstr("Item already exists; probably a file where a folder should be"));
  EXPECT_THAT(hoist_.log(), HasSubstr("NSFileTypeRegular"));
  // The others are served as ever.
  EXPECT_EQ(ask(20003).status, 0);
}

TEST_F(SupportFolder, ChangesNothingElseWhileItsPlaceIsPlayedWith) {
  ASSERT_EQ(ask(kAdministrator).status, 0);
  // Where it can be moved from.
  std::string precious = "/var/lib/precious";
  fs::create_directory(precious);
  ::chmod(precious.c_str(), 0755);
  ASSERT_EQ(::chown(precious.c_str(), kAdministrator, kAdministrator), 0);
  // Root's own folder: whatever is put in its place would become root's, and private.
  std::string place = kSupport + "/0";
  std::atomic<bool> stop = false;
  std::thread player([&] {
    std::error_code ignored;
    while (!stop) {
      fs::remove_all(place, ignored);
      fs::create_symlink(precious, place, ignored);
      fs::remove(place, ignored);
      fs::rename(precious, place, ignored);
      fs::rename(place, precious, ignored);
    }
  });
  ctl::HoistClient client("com.kelvo.hoist");
  for (int round = 0; round < 500; ++round) client.createSupportFolder();
  stop = true;
  player.join();
  auto status = statusOf(fs::exists(precious) ? precious : place);
  EXPECT_EQ(status.st_uid, kAdministrator);
  EXPECT_EQ(status.st_mode, S_IFDIR | 0755u);
  EXPECT_TRUE(hoist_.isRunning());
  fs::remove_all(precious);
}

}  // namespace
}  // namespace hoist
