// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/PreferenceStore.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/Exception.h"
#include "platform/FileDescriptor.h"
#include "support/Python.h"
#include "support/TemporaryFolder.h"
#include "support/TroubleRecorder.h"

namespace hoist::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kDomain = "com.example.app";

class PreferenceStoreOnDisk : public testing::Test {
 protected:
  PreferenceStore makeStore() { return PreferenceStore({folder_ / "user", folder_ / "machine"}); }

  std::string userFile() const { return folder_ / "user/com.example.app.plist"; }
  void writeUser(std::string_view content) { folder_.write("user/com.example.app.plist", content); }
  static std::string plist(std::string_view inside) {
    return "<plist version=\"1.0\"><dict>" + std::string(inside) + "</dict></plist>";
  }
  static std::string content(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  std::vector<std::string> names(const std::string& folder) const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_ / folder)) {
      names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }
  std::optional<Value> read(std::string_view key) { return store_.copyAppValue(key, kDomain); }
  void set(std::string_view key, std::optional<Value> value) {
    store_.setAppValue(key, std::move(value), kDomain);
  }
  bool synchronize() { return store_.appSynchronize(kDomain); }

  TemporaryFolder folder_;
  TroubleRecorder trouble_;
  PreferenceStore store_{{folder_ / "user", folder_ / "machine"}};
};

TEST_F(PreferenceStoreOnDisk, IsEmptyWithoutFiles) {
  EXPECT_EQ(read("x"), std::nullopt);
  EXPECT_TRUE(synchronize());
  EXPECT_FALSE(std::filesystem::exists(folder_ / "user"));
  EXPECT_THAT(trouble_.messages(), IsEmpty());
}

TEST_F(PreferenceStoreOnDisk, ShowsAChangeBeforeItIsSynchronised) {
  set("x", 1);
  EXPECT_EQ(read("x"), Value(1));
  EXPECT_EQ(makeStore().copyAppValue("x", kDomain), std::nullopt);
}

TEST_F(PreferenceStoreOnDisk, ShowsASynchronisedChangeToOthers) {
  PreferenceStore other = makeStore();
  EXPECT_EQ(other.copyAppValue("x", kDomain), std::nullopt);
  set("x", "text");
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(other.copyAppValue("x", kDomain), Value("text"));
  EXPECT_EQ(read("x"), Value("text"));
}

TEST_F(PreferenceStoreOnDisk, IsAPropertyListForOtherReaders) {
  set("number", 42);
  set("real", 0.1);
  set("flag", true);
  set("text", "<é>");
  set("list", Array{1, Dictionary{{"k", Data::fromString("x")}}});
  set("date", Date(1'709'644'029));
  ASSERT_TRUE(synchronize());
  EXPECT_THAT(content(userFile()), HasSubstr("<?xml"));
  EXPECT_EQ(runPython("p = plistlib.loads(data)\n"
                      "assert p == {'number': 42, 'real': 0.1, 'flag': True, 'text': '<é>', "
                      "'list': [1, {'k': b'x'}], 'date': datetime.datetime(2024, 3, 5, 13, 7, 9)}\n"
                      "assert p['flag'] is True\nout('yes')",
                      content(userFile())),
            "yes");
}

TEST_F(PreferenceStoreOnDisk, KeepsDomainsApart) {
  store_.setAppValue("x", 1, "one");
  store_.setAppValue("x", 2, "two");
  EXPECT_TRUE(store_.appSynchronize("one"));
  EXPECT_THAT(names("user"), ElementsAre(".one.plist.lock", "one.plist"));
  EXPECT_EQ(store_.copyAppValue("x", "two"), Value(2));
}

TEST_F(PreferenceStoreOnDisk, MergesItsChangesIntoThoseOfOthers) {
  set("mine", 1);
  set("both", "mine");
  set("gone", std::nullopt);
  writeUser(
      plist("<key>theirs</key><integer>2</integer><key>both</key><string>theirs</string>"
            "<key>gone</key><true/>"));
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(read("theirs"), Value(2));
  EXPECT_EQ(read("mine"), Value(1));
  EXPECT_EQ(read("both"), Value("mine"));
  EXPECT_EQ(read("gone"), std::nullopt);
  EXPECT_EQ(makeStore().copyAppValue("theirs", kDomain), Value(2));
}

TEST_F(PreferenceStoreOnDisk, FallsBackToTheMachineWideDefault) {
  folder_.write("machine/com.example.app.plist",
                plist("<key>x</key><integer>1</integer><key>y</key><integer>1</integer>"));
  writeUser(plist("<key>x</key><integer>2</integer>"));
  EXPECT_EQ(read("x"), Value(2));
  EXPECT_EQ(read("y"), Value(1));
  set("x", std::nullopt);
  EXPECT_EQ(read("x"), Value(1));
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(read("x"), Value(1));
  EXPECT_THAT(content(userFile()), testing::Not(HasSubstr("<key>y</key>")));
}

TEST_F(PreferenceStoreOnDisk, SeesWhatAnEditorWrites) {
  writeUser(plist("<key>x</key><integer>1</integer>"));
  EXPECT_EQ(read("x"), Value(1));
  writeUser(plist("<key>x</key><integer>1234</integer>"));
  EXPECT_EQ(read("x"), Value(1234));
  std::filesystem::remove(userFile());
  EXPECT_EQ(read("x"), std::nullopt);
}

TEST_F(PreferenceStoreOnDisk, ReadsTheBinaryForm) {
  writeUser(runPython("out(plistlib.dumps({'x': 7}, fmt=plistlib.FMT_BINARY))"));
  EXPECT_EQ(read("x"), Value(7));
}

TEST_F(PreferenceStoreOnDisk, KeepsTheModeOfAFileAndMakesNewOnesPrivate) {
  set("x", 1);
  ASSERT_TRUE(synchronize());
  struct stat status;
  ASSERT_EQ(stat(userFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  ASSERT_EQ(stat((folder_ / "user").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  ASSERT_EQ(chmod(userFile().c_str(), 0644), 0);
  set("x", 2);
  ASSERT_TRUE(synchronize());
  ASSERT_EQ(stat(userFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(PreferenceStoreOnDisk, DoesNotWriteWhatIsThereAlready) {
  writeUser(plist("<key>x</key><integer>1</integer>"));
  std::string before = content(userFile());
  set("x", 1);
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(content(userFile()), before);
}

TEST_F(PreferenceStoreOnDisk, LeavesNothingElseBehind) {
  folder_.write("user/.com.example.app.plist.new", "of a process that was killed");
  set("x", 1);
  EXPECT_TRUE(synchronize());
  EXPECT_THAT(names("user"), ElementsAre(".com.example.app.plist.lock", "com.example.app.plist"));
}

TEST_F(PreferenceStoreOnDisk, ReportsADamagedFileOnceAndKeepsItAside) {
  writeUser("not a list");
  EXPECT_EQ(read("x"), std::nullopt);
  EXPECT_EQ(read("y"), std::nullopt);
  EXPECT_THAT(trouble_.messages(), ElementsAre(HasSubstr(userFile())));
  EXPECT_EQ(content(userFile()), "not a list");
  set("x", 1);
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(read("x"), Value(1));
  EXPECT_EQ(content(userFile() + ".damaged"), "not a list");
  EXPECT_EQ(trouble_.messages().size(), 1u);
}

TEST_F(PreferenceStoreOnDisk, KeepsEveryDamagedFile) {
  for (const char* text : {"first", "second", "third"}) {
    writeUser(text);
    set("x", text);
    EXPECT_TRUE(synchronize());
  }
  EXPECT_EQ(content(userFile() + ".damaged"), "first");
  EXPECT_EQ(content(userFile() + ".damaged2"), "second");
  EXPECT_EQ(content(userFile() + ".damaged3"), "third");
}

TEST_F(PreferenceStoreOnDisk, TakesAListThatIsNoDictionaryForDamaged) {
  writeUser("<plist version=\"1.0\"><array/></plist>");
  EXPECT_EQ(read("x"), std::nullopt);
  EXPECT_THAT(trouble_.messages(), ElementsAre(HasSubstr("no dictionary")));
}

TEST_F(PreferenceStoreOnDisk, IsNotHeldUpByAFifo) {
  std::filesystem::create_directories(folder_ / "user");
  ASSERT_EQ(mkfifo(userFile().c_str(), 0600), 0);
  EXPECT_EQ(read("x"), std::nullopt);
  set("x", 1);
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(read("x"), Value(1));
  EXPECT_TRUE(std::filesystem::is_fifo(userFile() + ".damaged"));
}

TEST_F(PreferenceStoreOnDisk, NeitherReadsNorWritesThroughALink) {
  std::string target = folder_.write("target.plist", plist("<key>x</key><integer>5</integer>"));
  std::string before = content(target);
  std::filesystem::create_directories(folder_ / "user");
  std::filesystem::create_symlink(target, userFile());
  EXPECT_EQ(read("x"), std::nullopt);
  set("x", 1);
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(content(target), before);
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(userFile())));
  EXPECT_EQ(std::filesystem::read_symlink(userFile() + ".damaged"), target);
}

TEST_F(PreferenceStoreOnDisk, PutsAFolderAside) {
  std::filesystem::create_directories(userFile());
  EXPECT_EQ(read("x"), std::nullopt);
  set("x", 1);
  EXPECT_TRUE(synchronize());
  EXPECT_TRUE(std::filesystem::is_directory(userFile() + ".damaged"));
}

TEST_F(PreferenceStoreOnDisk, DoesNotReadAHugeFile) {
  writeUser("");
  ASSERT_EQ(truncate(userFile().c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(read("x"), std::nullopt);
  EXPECT_THAT(trouble_.messages(), ElementsAre(HasSubstr("too large")));
}

TEST_F(PreferenceStoreOnDisk, KeepsItsChangesWhenTheyCannotBeWritten) {
  folder_.write("user", "a file where the folder should be");
  set("x", 1);
  EXPECT_FALSE(synchronize());
  EXPECT_FALSE(synchronize());
  EXPECT_EQ(trouble_.messages().size(), 1u);
  EXPECT_EQ(read("x"), Value(1));
  std::filesystem::remove(folder_ / "user");
  EXPECT_TRUE(synchronize());
  EXPECT_EQ(makeStore().copyAppValue("x", kDomain), Value(1));
}

TEST_F(PreferenceStoreOnDisk, DoesNotWriteMoreThanItWouldRead) {
  set("x", std::string(2'000'000, 'x'));
  EXPECT_FALSE(synchronize());
  EXPECT_FALSE(std::filesystem::exists(userFile()));
}

TEST_F(PreferenceStoreOnDisk, DoesNotTakeAnUnreadableFileForDamaged) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  writeUser(plist("<key>theirs</key><integer>1</integer>"));
  ASSERT_EQ(chmod(userFile().c_str(), 0), 0);
  ASSERT_EQ(chmod((folder_ / "user").c_str(), 0777), 0);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(seteuid(65534), 0);
  EXPECT_EQ(read("theirs"), std::nullopt);
  set("x", 1);
  EXPECT_FALSE(synchronize());
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(trouble_.messages().size(), 2u);
  EXPECT_THAT(content(userFile()), HasSubstr("theirs"));
}

TEST_F(PreferenceStoreOnDisk, GivesUpWhenAnotherProcessHoldsTheLockForASecond) {
  std::filesystem::create_directories(folder_ / "user");
  FileDescriptor held(open((folder_ / "user/.com.example.app.plist.lock").c_str(),
                           O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  set("x", 1);
  EXPECT_FALSE(synchronize());
  held.reset();
  EXPECT_TRUE(synchronize());
}

TEST_F(PreferenceStoreOnDisk, LosesNoChangeOfManyProcesses) {
  constexpr int kProcesses = 8;
  constexpr int kChanges = 10;
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    pid_t child = fork();
    if (child == 0) {
      PreferenceStore store = makeStore();
      for (int change = 0; change < kChanges; ++change) {
        store.setAppValue(std::to_string(process * kChanges + change), change, kDomain);
        while (!store.appSynchronize(kDomain)) continue;
      }
      _exit(0);
    }
    children.push_back(child);
  }
  for (pid_t child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  for (int key = 0; key < kProcesses * kChanges; ++key) {
    EXPECT_TRUE(read(std::to_string(key))) << key;
  }
}

TEST_F(PreferenceStoreOnDisk, IsSafeFromManyThreads) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 20; ++i) {
        set(std::to_string(t), i);
        read(std::to_string((t + 1) % 4));
        synchronize();
      }
    });
  }
  threads.clear();
  EXPECT_TRUE(synchronize());
  for (int t = 0; t < 4; ++t) {
    EXPECT_EQ(makeStore().copyAppValue(std::to_string(t), kDomain), Value(19));
  }
}

TEST_F(PreferenceStoreOnDisk, RefusesWhatIsNoPropertyList) {
  EXPECT_THROW(set("x", Value()), Exception);
  EXPECT_THROW(set("x", Array{Dictionary{{"k", Value()}}}), Exception);
  Value deep = 1;
  for (int i = 0; i < 65; ++i) deep = Array{deep};
  EXPECT_THROW(set("x", deep), Exception);
  EXPECT_EQ(read("x"), std::nullopt);
}

TEST_F(PreferenceStoreOnDisk, RefusesADomainThatLeavesTheFolder) {
  for (std::string domain : {"", ".", "..", "../x", "/etc/passwd", "a/b"}) {
    EXPECT_THROW(store_.setAppValue("x", 1, domain), Exception) << domain;
    EXPECT_EQ(store_.copyAppValue("x", domain), std::nullopt);
    EXPECT_FALSE(store_.appSynchronize(domain));
  }
  EXPECT_THROW(store_.setAppValue("x", 1, std::string(201, 'x')), Exception);
  EXPECT_THROW(store_.setAppValue("x", 1, std::string_view("a\0b", 3)), Exception);
}

TEST_F(PreferenceStoreOnDisk, HasOnlyDefaultsForAUserWithoutAHome) {
  folder_.write("machine/com.example.app.plist", plist("<key>x</key><integer>1</integer>"));
  PreferenceStore store({std::nullopt, folder_ / "machine"});
  EXPECT_EQ(store.copyAppValue("x", kDomain), Value(1));
  store.setAppValue("x", 2, kDomain);
  EXPECT_EQ(store.copyAppValue("x", kDomain), Value(2));
  EXPECT_FALSE(store.appSynchronize(kDomain));
}

TEST_F(PreferenceStoreOnDisk, OfTheProcessFollowsXDGConfigHome) {
  ASSERT_EQ(setenv("XDG_CONFIG_HOME", (folder_ / "elsewhere").c_str(), 1), 0);
  folder_.write("elsewhere/com.example.app.plist", plist("<key>x</key><integer>3</integer>"));
  EXPECT_EQ(PreferenceStore::shared().copyAppValue("x", kDomain), Value(3));
  // A relative path counts as none.
  ASSERT_EQ(setenv("XDG_CONFIG_HOME", "elsewhere", 1), 0);
  EXPECT_EQ(PreferenceStore::shared().copyAppValue("x", kDomain), std::nullopt);
  unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
}  // namespace hoist::platform
