// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "locations/KLPath.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <regex>

#include "filesystem/PXDirectory.h"
#include "locations/HomeOverride.h"
#include "locations/KLStandardPath.h"
#include "locations/KLSubPath.h"
#include "platform/FilePaths.h"
#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "platform/files/FileManager.h"
#include "platform/files/NewFolder.h"
#include "support/AsUser.h"
#include "support/PlainCoders.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TestVolumes.h"
#include "values/product.h"

namespace hoist {
namespace {

// The identifier of the line that this one was logged in.
std::string parentOf(const LoggedLine& line) {
  return line.line.substr(0, line.line.rfind('.'));
}

// A location at any place, as only a test needs one.
class FixedPath final : public KLPath {
 public:
  explicit FixedPath(std::string path) : KLPath(std::nullopt), path_(std::move(path)) {}

 protected:
  std::optional<std::string> constructPath() const override { return path_; }

 private:
  std::string path_;
};

// "daemon", whose home is not root's.
constexpr uid_t kUserWithHome = 1;

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

class Location : public testing::Test {
 protected:
  Ref<KLPath> base() { return make<FixedPath>(folder_.path()); }
  Ref<KLSubPath> sub(std::string_view name, std::optional<Dictionary> attributes = std::nullopt) {
    return KLSubPath::initWithName(name, base(), std::move(attributes));
  }
  TemporaryFolder folder_;
  LogRecorder log_;
};

TEST_F(Location, ResolvesOnceByItsEnclosingFolder) {
  auto inner = KLSubPath::initWithName("inner", sub("outer"));
  EXPECT_EQ(inner->path(), folder_ / "outer/inner");
  EXPECT_EQ(inner->pathToFile("x"), folder_ / "outer/inner/x");
  EXPECT_EQ(inner->urlToFile("a b"), "file://" + folder_.path() + "/outer/inner/a%20b");
  EXPECT_EQ(inner->url(), "file://" + folder_.path() + "/outer/inner");
  EXPECT_FALSE(inner->exists());
  EXPECT_FALSE(inner->directory());
}

TEST_F(Location, LeadsNowhereWhenItIsBuiltOnNothing) {
  auto nowhere = KLPath::initWithAttributes(std::nullopt);
  auto inner = KLSubPath::initWithName("x", nowhere);
  EXPECT_EQ(inner->path(), std::nullopt);
  EXPECT_EQ(inner->url(), std::nullopt);
  EXPECT_EQ(inner->pathToFile("y"), std::nullopt);
  EXPECT_EQ(inner->urlToFile("y"), std::nullopt);
  EXPECT_FALSE(inner->exists() || inner->containsFile("y"));
  EXPECT_FALSE(inner->directory() || inner->infoForFile("y"));
  EXPECT_TRUE(std::regex_match(inner->description(),
                               std::regex("KLSubPath\\.0x[0-9a-f]+ \\{ path=\\(null\\) \\}")));
  EXPECT_THROW(inner->create(), KLException);
  EXPECT_EQ(KLStandardPath::initWithStandardDirectory(99)->path(), std::nullopt);
}

TEST_F(Location, CreatesEveryMissingFolderFromTheOutsideIn) {
  auto outer = sub("outer", Dictionary{{files::kFilePosixPermissions, 0750}});
  auto inner =
      KLSubPath::initWithName("inner", outer, Dictionary{{files::kFilePosixPermissions, 0700}});
  inner->create();
  EXPECT_EQ(statusOf(folder_ / "outer").st_mode & 07777, 0750u);
  EXPECT_EQ(statusOf(folder_ / "outer/inner").st_mode & 07777, 0700u);
  EXPECT_EQ(log_.texts(classification::Minutia),
            (std::vector<std::string>{"Created folder " + (folder_ / "outer"),
                                      "Created folder " + (folder_ / "outer/inner")}));
  inner->create();
  EXPECT_EQ(log_.lines().size(), 2u);
  EXPECT_TRUE(inner->exists());
  EXPECT_EQ(inner->directory()->path(), folder_ / "outer/inner");
  EXPECT_EQ(inner->directory(), inner->directory());
}

TEST_F(Location, SaysWhyWhenAFileIsInItsPlace) {
  folder_.write("file", "");
  auto location = sub("file");
  EXPECT_FALSE(location->exists());
  EXPECT_TRUE(base()->containsFile("file"));
  auto exception = raisedBy([&] { location->create(); });
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "Cannot create support folder");
  EXPECT_EQ(detailOf(exception, "Folder"), folder_ / "file");
  auto lines = log_.lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[0].classification, classification::Failure);
  EXPECT_EQ(lines[0].text, "Cannot create support folder");
  auto find = [&](std::string_view text) {
    auto line = std::find_if(lines.begin(), lines.end(),
                             [&](auto& line) { return line.text.find(text) != line.text.npos; });
    EXPECT_NE(line, lines.end()) << text;
    return line == lines.end() ? LoggedLine{} : *line;
  };
  auto folder = find("Folder: ");
  EXPECT_EQ(folder.classification, classification::Details);
  EXPECT_EQ(parentOf(folder), lines[0].line);
  EXPECT_NE(folder.text.find(folder_ / "file"), std::string::npos);
  auto item = find("Item already exists; probably a file where a folder should be");
  EXPECT_EQ(item.classification, classification::Plain);
  EXPECT_EQ(parentOf(item), lines[0].line);
  EXPECT_EQ(parentOf(find("NSFileTypeRegular")), item.line);
  EXPECT_EQ(find("NSFileTypeRegular").classification, classification::Details);
}

TEST_F(Location, SaysWhyWhenTheEnclosingFolderIsMissingOrRefuses) {
  auto location = KLSubPath::initWithName("x", make<FixedPath>("/no such/folder"));
  // Without the enclosing folder's own create.
  auto base = std::static_pointer_cast<KLPath>(location);
  EXPECT_THROW(make<FixedPath>("/no such/folder/x")->create(), KLException);
  auto lines = log_.lines();
  auto last = lines.back();
  EXPECT_EQ(last.text, "Enclosing folder does not exist");
  EXPECT_EQ(last.classification, classification::Failure);
  auto enclosing = lines[lines.size() - 2];
  EXPECT_EQ(enclosing.line, parentOf(last));
  EXPECT_NE(enclosing.text.find("Enclosing folder"), std::string::npos);
  EXPECT_NE(enclosing.text.find("/no such/folder"), std::string::npos);

  EXPECT_THROW(make<FixedPath>("/proc/x")->create(), KLException);
  auto texts = log_.texts(classification::Details);
  EXPECT_TRUE(std::any_of(texts.begin(), texts.end(), [](auto& text) {
    return text.find("NSFileTypeDirectory") != std::string::npos;
  }));
}

// Somebody else makes the folder between the look and the making.
class RacedPath final : public KLPath {
 public:
  explicit RacedPath(std::string path) : KLPath(std::nullopt), path_(std::move(path)) {}
  bool exists() override { return looks_++ > 0 && KLPath::exists(); }

 protected:
  std::optional<std::string> constructPath() const override { return path_; }

 private:
  std::string path_;
  int looks_ = 0;
};

TEST_F(Location, IsThereWhenSomebodyElseWasFasterInMakingIt) {
  ::mkdir((folder_ / "x").c_str(), 0755);
  folder_.write("file", "");
  make<RacedPath>(folder_ / "x")->create();
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_THROW(make<RacedPath>(folder_ / "file")->create(), KLException);
}

TEST_F(Location, IsNotALinkToAFolder) {
  ::mkdir((folder_ / "real").c_str(), 0755);
  ASSERT_EQ(::symlink("real", (folder_ / "link").c_str()), 0);
  auto location = sub("link", Dictionary{{files::kFilePosixPermissions, 0700}});
  EXPECT_FALSE(location->exists());
  EXPECT_THROW(location->create(), KLException);
  EXPECT_EQ(statusOf(folder_ / "real").st_mode & 07777, 0755u);
}

TEST_F(Location, WarnsOfAPrivateFolderThatIsNotItsOwnersAlone) {
  ::mkdir((folder_ / "x").c_str(), 0755);
  auto attributes =
      Dictionary{{files::kFilePosixPermissions, 0700}, {files::kFileOwnerAccountID, ::geteuid()}};
  sub("x", attributes)->create();
  auto user = std::to_string(::geteuid());
  EXPECT_EQ(log_.texts(classification::Caution),
            std::vector<std::string>{"Folder " + (folder_ / "x") + " belongs to user " + user +
                                     " with mode 0755, not to user " + user + " with 0700"});
  EXPECT_EQ(statusOf(folder_ / "x").st_mode & 07777, 0755u);
  ::chmod((folder_ / "x").c_str(), 0700);
  sub("x", attributes)->create();
  EXPECT_EQ(log_.lines().size(), 1u);
}

TEST_F(Location, ListsAndProbesItsFiles) {
  folder_.write("x", "");
  auto location = base();
  EXPECT_TRUE(location->infoForFile("x")->isRegularFile());
  EXPECT_FALSE(location->infoForFile("missing")->exists());
  EXPECT_TRUE(location->containsFile("x"));
  EXPECT_FALSE(location->containsFile("missing"));
}

TEST_F(Location, IsArchivedByHowItIsFound) {
  KLPath::registerClasses();
  auto standard = KLStandardPath::initWithStandardDirectory(5, 2);
  auto location = KLSubPath::initWithName(
      "inner", KLSubPath::initWithName("outer", standard),
      Dictionary{{files::kFilePosixPermissions, 0700}, {files::kFileOwnerAccountID, 501}});
  EXPECT_TRUE(location->path());
  auto archive = KeyedArchiver::archivedDataWithRootObject(Value(Ref<KLPath>(location)));
  auto value = KeyedUnarchiver::unarchivedObjectOfClasses({"KLPath"}, archive);
  ASSERT_TRUE(value);
  auto decoded = value->objectAs<KLSubPath>();
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->folderName(), "inner");
  EXPECT_EQ(decoded->createAttributes(), location->createAttributes());
  EXPECT_EQ(decoded->path(), location->path());
  auto outer = as<KLSubPath>(decoded->enclosingPath());
  ASSERT_TRUE(outer);
  EXPECT_EQ(outer->createAttributes(), std::nullopt);
  auto root = as<KLStandardPath>(outer->enclosingPath());
  ASSERT_TRUE(root);
  EXPECT_EQ(root->standardDirectory(), 5u);
  EXPECT_EQ(root->domainMask(), 2u);
}

TEST_F(Location, IsArchivedUnderTheStatedKeys) {
  Dictionary attributes = {{files::kFilePosixPermissions, 0700}};
  PlainKeyedEncoder plain, standard, inner;
  KLPath::initWithAttributes(attributes)->encodeWithCoder(plain);
  EXPECT_EQ(plain.fields, (Dictionary{{"attrs", attributes}}));
  KLStandardPath::initWithStandardDirectory(14, 2, attributes)->encodeWithCoder(standard);
  EXPECT_EQ(standard.fields,
            (Dictionary{{"attrs", attributes}, {"wellknown", 14}, {"domains", 2}}));
  auto enclosing = base();
  KLSubPath::initWithName("x", enclosing)->encodeWithCoder(inner);
  EXPECT_EQ(inner.fields,
            (Dictionary{{"enclosing", Value(Ref<Object>(enclosing))}, {"folder", "x"}}));
}

TEST_F(Location, DecodedWithoutItsFieldsLeadsNowhere) {
  KLPath::registerClasses();
  auto empty = make<KLSubPath>(std::nullopt, nullptr, std::nullopt);
  auto archive = KeyedArchiver::archivedDataWithRootObject(Value(Ref<KLPath>(empty)));
  auto value = KeyedUnarchiver::unarchivedObjectOfClasses({"KLPath"}, archive);
  EXPECT_EQ(value->objectAs<KLPath>()->path(), std::nullopt);
}

// ---- The folders of the system, with file systems of the test's own in their places ----

class SystemLocations : public testing::Test {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
    volumes_->mount("tmpfs", "/var/lib", "tmpfs", 0, "mode=755");
    home_ = *homeDirectory(0);
    volumes_->mount("tmpfs", home_, "tmpfs", 0, "mode=700");
  }
  std::optional<TestVolumes> volumes_;
  std::string home_;
};

TEST_F(SystemLocations, AreWhereLinuxKeepsThem) {
  auto data = home_ + "/.local/share";
  EXPECT_EQ(KLPath::userLibraryPath()->path(), data);
  EXPECT_EQ(KLPath::userApplicationSupportPath()->path(), data);
  EXPECT_EQ(KLPath::userPreferencesPath()->path(), data + "/Preferences");
  EXPECT_EQ(KLPath::userLogsPath()->path(), data + "/Logs");
  EXPECT_EQ(KLPath::userAgentConfigPath()->path(), data + "/LaunchAgents");
  EXPECT_EQ(KLPath::userServicesPath()->path(), data + "/Services");
  EXPECT_EQ(KLPath::userKLApplicationSupportPath()->path(), data + "/Kelvo");
  EXPECT_EQ(KLPath::userKLPreferencesPath()->path(), data + "/Preferences/Kelvo");
  EXPECT_EQ(KLPath::userKLPreferencesPathToGroup("g")->path(), data + "/Preferences/Kelvo/g");
  EXPECT_EQ(KLPath::localApplicationPath()->path(), "/opt");
  EXPECT_EQ(KLPath::localLibraryPath()->path(), "/var/lib");
  EXPECT_EQ(KLPath::localApplicationSupportPath()->path(), "/var/lib");
  EXPECT_EQ(KLPath::localKLApplicationSupportPath()->path(), "/var/lib/Kelvo");
  EXPECT_EQ(KLPath::localDaemonConfigPath()->path(), "/var/lib/LaunchDaemons");
  EXPECT_EQ(KLPath::localAgentConfigPath()->path(), "/var/lib/LaunchAgents");
  EXPECT_EQ(KLPath::perUserLocalKLApplicationSupportPath()->path(), "/var/lib/Kelvo/0");
  EXPECT_TRUE(KLPath::userLibraryPath()->exists());
  EXPECT_EQ(statusOf(data).st_mode & 07777, 0700u);
}

TEST_F(SystemLocations, HaveTheStatedOwnersAndModes) {
  auto user = KLPath::userKLApplicationSupportPath();
  EXPECT_EQ(user->createAttributes(), (Dictionary{{"NSFilePosixPermissions", 0700}}));
  auto local = KLPath::localKLApplicationSupportPath();
  EXPECT_EQ(local->createAttributes(), (Dictionary{{"NSFilePosixPermissions", 0775},
                                                   {"NSFileOwnerAccountID", 0},
                                                   {"NSFileGroupOwnerAccountName", "admin"}}));
  auto perUser = KLPath::perUserLocalKLApplicationSupportPath();
  EXPECT_EQ(perUser->createAttributes(),
            (Dictionary{{"NSFilePosixPermissions", 0700}, {"NSFileOwnerAccountID", 0}}));
  for (auto& plain : {KLPath::userLibraryPath(), KLPath::userPreferencesPath(),
                      KLPath::userKLPreferencesPath(), KLPath::localDaemonConfigPath()}) {
    EXPECT_EQ(plain->createAttributes(), std::nullopt);
  }
}

TEST_F(SystemLocations, AreMadeForUser501AsStated) {
  auto folder = KLSubPath::initWithName(
      "501", KLPath::localKLApplicationSupportPath(),
      Dictionary{{files::kFilePosixPermissions, 0700}, {files::kFileOwnerAccountID, 501}});
  folder->create();
  auto made = statusOf("/var/lib/Kelvo/501");
  EXPECT_EQ(made.st_uid, 501u);
  EXPECT_EQ(made.st_mode & 07777, 0700u);
  auto parent = statusOf("/var/lib/Kelvo");
  EXPECT_EQ(parent.st_uid, 0u);
  EXPECT_EQ(parent.st_gid, files::groupAccount("admin").value_or(0));
  EXPECT_EQ(parent.st_mode & 07777, 0775u);
}

TEST_F(SystemLocations, OfTheBootVolumeDependOnWhereTheHomeLies) {
  // Worked out once a process: each case in one of its own.
  auto bootPathInChild = [&] {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    if (::fork() == 0) {
      auto path = KLPath::bootKLApplicationSupportPath()->path().value_or("");
      ::_exit(::write(ends[1], path.data(), path.size()) < 0);
    }
    ::close(ends[1]);
    char path[256] = {};
    EXPECT_GT(::read(ends[0], path, sizeof path - 1), 0);
    ::close(ends[0]);
    ::wait(nullptr);
    return std::string(path);
  };
  EXPECT_EQ(bootPathInChild(), "/var/lib/Kelvo/0");
  ::mkdir("/var/lib/home", 0700);
  volumes_->mount("/var/lib/home", home_, "", MS_BIND, "");
  EXPECT_EQ(bootPathInChild(), home_ + "/.local/share/Kelvo");
}

TEST_F(SystemLocations, ResolveAnewWhereTheyAreDecoded) {
  KLPath::registerClasses();
  auto location = KLPath::userLogsPath();
  EXPECT_EQ(location->path(), home_ + "/.local/share/Logs");
  auto archive = KeyedArchiver::archivedDataWithRootObject(Value(location));
  AsUser user(kUserWithHome);
  auto decoded = KeyedUnarchiver::unarchivedObjectOfClasses({"KLPath"}, archive);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->objectAs<KLPath>()->path(),
            *homeDirectory(kUserWithHome) + "/.local/share/Logs");
  EXPECT_EQ(location->path(), home_ + "/.local/share/Logs");
}

TEST_F(SystemLocations, AcceptALinkInThePlaceOfAStandardFolder) {
  ::mkdir((home_ + "/.local").c_str(), 0700);
  ::mkdir((home_ + "/data").c_str(), 0700);
  ASSERT_EQ(::symlink("../data", (home_ + "/.local/share").c_str()), 0);
  EXPECT_TRUE(KLPath::userApplicationSupportPath()->exists());
  KLPath::userKLApplicationSupportPath()->create();
  EXPECT_EQ(statusOf(home_ + "/data/Kelvo").st_mode & 07777, 0700u);
}

TEST_F(SystemLocations, AskTheClientsPreferencesWhetherItWantsAHelper) {
  // Preferences are kept for the life of a process: each case in one of its own.
  auto usesHelperInChild = [] {
    pid_t child = ::fork();
    if (child == 0) ::_exit(KLPath::usesPrivilegedHelper() ? 1 : 0);
    int status = -1;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
  };
  EXPECT_EQ(usesHelperInChild(), 1);
  ::mkdir((home_ + "/.config").c_str(), 0700);
  std::ofstream(home_ + "/.config/" + std::string(product::kClientDomain) + ".plist")
      << "<plist version=\"1.0\"><dict><key>KLUseAdminPrivileges</key><false/></dict></plist>";
  EXPECT_EQ(usesHelperInChild(), 0);
}

// ---- The home of a set-user-ID tool ----

TEST(HomeOverride, IsTheHomeThatHoldsTheProductFolder) {
  TemporaryFolder folder;
  auto tool = folder.write("home/.local/share/Kelvo/tool", "");
  EXPECT_EQ(homeOverrideForExecutable(tool), std::nullopt);
  ASSERT_EQ(::chmod(tool.c_str(), 04755), 0);
  EXPECT_EQ(homeOverrideForExecutable(tool), folder / "home");
}

TEST(HomeOverride, IsTheToolsFolderElsewhereAndNeverTheRoot) {
  TemporaryFolder folder;
  auto tool = folder.write("bin/tool", "");
  ASSERT_EQ(::chmod(tool.c_str(), 04755), 0);
  EXPECT_EQ(homeOverrideForExecutable(tool), folder / "bin");
  EXPECT_EQ(homeOverrideForExecutable(folder / "missing"), std::nullopt);
  EXPECT_EQ(homeOverrideForExecutable("/missing"), std::nullopt);
}

TEST(HomeOverride, IsNoneWhereTheProductFolderIsBelowNoHome) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  volumes.mount("tmpfs", "/mnt", "tmpfs", 0, "");
  ASSERT_EQ(::mkdir("/mnt/Kelvo", 0755), 0);
  std::ofstream("/mnt/Kelvo/tool") << "tool";
  ASSERT_EQ(::chmod("/mnt/Kelvo/tool", 04755), 0);
  EXPECT_EQ(homeOverrideForExecutable("/mnt/Kelvo/tool"), std::nullopt);
}

TEST(HomeOverride, OfAnOrdinaryProgramIsNone) {
  EXPECT_EQ(homeFolderOverride(), std::nullopt);
}

}  // namespace
}  // namespace hoist
