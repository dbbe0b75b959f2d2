// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/attrlist/AttributeCalls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/FileDescriptor.h"
#include "support/AsUser.h"
#include "support/TemporaryFolder.h"
#include "values/AbstractFile.h"

namespace hoist::attrlist {
namespace {

constexpr AttributeSet kEverything = {.common = 0x2278F0B, .directory = 7, .file = 0x207};

ItemAttributes attributesOf(const std::string& path, const AttributeSet& request = kEverything,
                            std::uint32_t options = FSOPT_NOFOLLOW) {
  ItemAttributes item;
  EXPECT_EQ(AttributeCalls::current().getattrlist(path.c_str(), request, item, options), 0);
  return item;
}

std::map<std::string, ItemAttributes> listed(const std::string& path, std::size_t bufferSize) {
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  BulkBuffer buffer(bufferSize);
  std::map<std::string, ItemAttributes> all;
  while (AttributeCalls::current().getattrlistbulk(folder.get(), kEverything, buffer, 0) > 0) {
    for (auto& entry : buffer.entries()) {
      EXPECT_TRUE(all.emplace(std::string(entry.name, entry.nameLength), entry.attributes).second);
    }
  }
  return all;
}

TEST(GetAttrList, AnswersWhatStatSays) {
  TemporaryFolder folder;
  auto file = folder.write("x", "twelve bytes");
  struct stat status;
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  auto item = attributesOf(file);
  EXPECT_EQ(item.objectType, static_cast<std::uint32_t>(VnodeType::Regular));
  EXPECT_EQ(item.device, static_cast<std::uint32_t>(status.st_dev));
  EXPECT_EQ(item.fileID, status.st_ino);
  EXPECT_EQ(item.ownerID, status.st_uid);
  EXPECT_EQ(item.groupID, status.st_gid);
  EXPECT_EQ(item.accessMask, status.st_mode);
  EXPECT_EQ(item.modifiedTime.tv_sec, status.st_mtim.tv_sec);
  EXPECT_EQ(item.modifiedTime.tv_nsec, status.st_mtim.tv_nsec);
  EXPECT_EQ(item.file.totalSize, 12u);
  EXPECT_EQ(item.file.dataLength, 12u);
  EXPECT_EQ(item.file.allocatedSize, static_cast<std::uint64_t>(status.st_blocks) * 512);
  EXPECT_EQ(item.file.linkCount, 1u);
  EXPECT_EQ(item.returned.directory, 0u);
}

TEST(GetAttrList, ReturnsNeitherScriptNorEffectiveAccessNorEntryCount) {
  TemporaryFolder folder;
  folder.write("sub/x", "");
  auto item = attributesOf(folder / "sub");
  EXPECT_EQ(item.returned.common & (ATTR_CMN_SCRIPT | ATTR_CMN_USERACCESS), 0u);
  EXPECT_EQ(item.returned.directory, ATTR_DIR_LINKCOUNT | ATTR_DIR_MOUNTSTATUS);
  EXPECT_EQ(item.directory.entryCount, 0u);
  EXPECT_EQ(item.script, 0u);
}

TEST(GetAttrList, CountsAFolderAsOneLinkHoweverManySubfoldersItHas) {
  TemporaryFolder folder;
  folder.write("a/x", "");
  folder.write("b/x", "");
  EXPECT_EQ(attributesOf(folder.path()).directory.linkCount, 1u);
}

TEST(GetAttrList, ReportsTheRootOfAMount) {
  EXPECT_EQ(attributesOf("/proc").directory.mountStatus, 1u);
  EXPECT_EQ(attributesOf("/proc/self/task").directory.mountStatus, 0u);
}

TEST(GetAttrList, AsksForTheTypeAloneWhenNothingElseIsWanted) {
  TemporaryFolder folder;
  auto item =
      attributesOf(folder.write("x", "abc"), {.common = ATTR_CMN_OBJTYPE | ATTR_CMN_FULLPATH});
  EXPECT_EQ(item.objectType, static_cast<std::uint32_t>(VnodeType::Regular));
  EXPECT_EQ(item.returned.common, ATTR_CMN_OBJTYPE);
  EXPECT_EQ(item.fileID, 0u);
}

TEST(GetAttrList, DescribesALinkOrItsTarget) {
  TemporaryFolder folder;
  folder.write("x", "");
  ASSERT_EQ(::symlink("x", (folder / "link").c_str()), 0);
  EXPECT_EQ(attributesOf(folder / "link").objectType,
            static_cast<std::uint32_t>(VnodeType::SymbolicLink));
  EXPECT_EQ(attributesOf(folder / "link", kEverything, 0).objectType,
            static_cast<std::uint32_t>(VnodeType::Regular));
}

TEST(GetAttrList, TellsEveryTypeApart) {
  TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  ASSERT_EQ(::mknod((folder / "socket").c_str(), S_IFSOCK | 0600, 0), 0);
  auto type = [&](const std::string& path) {
    return static_cast<VnodeType>(attributesOf(path).objectType);
  };
  EXPECT_EQ(type(folder / "pipe"), VnodeType::NamedPipe);
  EXPECT_EQ(type(folder / "socket"), VnodeType::Socket);
  EXPECT_EQ(type("/dev/null"), VnodeType::CharacterDevice);
  EXPECT_EQ(type("/proc"), VnodeType::Directory);
}

TEST(GetAttrList, FailsWithTheSystemsError) {
  TemporaryFolder folder;
  folder.write("file", "");
  ItemAttributes item;
  auto errorFor = [&](const std::string& path) {
    errno = 0;
    EXPECT_EQ(
        AttributeCalls::current().getattrlist(path.c_str(), kEverything, item, FSOPT_NOFOLLOW), -1);
    return errno;
  };
  EXPECT_EQ(errorFor(folder / "missing"), ENOENT);
  EXPECT_EQ(errorFor(folder / "file/below"), ENOTDIR);
  EXPECT_EQ(errorFor(""), ENOENT);
  EXPECT_EQ(errorFor(std::string(5000, 'x')), ENAMETOOLONG);
}

TEST(GetAttrList, DescribesAnOpenFileWhereverItsNameLeadsNow) {
  TemporaryFolder folder;
  auto path = folder.write("x", "old");
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::unlink(path.c_str()), 0);
  folder.write("x", "much newer");
  ItemAttributes item;
  ASSERT_EQ(AttributeCalls::current().fgetattrlist(file.get(), kEverything, item, 0), 0);
  EXPECT_EQ(item.file.totalSize, 3u);
  EXPECT_EQ(item.file.linkCount, 0u);
}

TEST(GetAttrListBulk, AnswersEveryNameOnceInBatchesOfAnySize) {
  TemporaryFolder folder;
  for (int i = 0; i < 500; ++i) folder.write("name " + std::to_string(i), std::string(i, 'x'));
  for (std::size_t size : {1024, 16384}) {
    auto all = listed(folder.path(), size);
    ASSERT_EQ(all.size(), 500u);
    EXPECT_EQ(all["name 123"].file.totalSize, 123u);
  }
}

TEST(GetAttrListBulk, KeepsOddNamesByteForByte) {
  TemporaryFolder folder;
  std::string longest(255, 'n');
  for (std::string name :
       {std::string("\xff\xfe"), std::string("line\nfeed"), longest, std::string("...")}) {
    folder.write(name, "");
  }
  auto all = listed(folder.path(), 16384);
  EXPECT_EQ(all.size(), 4u);
  EXPECT_TRUE(all.contains("\xff\xfe"));
  EXPECT_TRUE(all.contains("line\nfeed"));
  EXPECT_TRUE(all.contains(longest));
  EXPECT_TRUE(all.contains("..."));
}

TEST(GetAttrListBulk, ListsByNameAndTypeWhereSearchingIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  folder.write("listed/file", "");
  ::mkdir((folder / "listed/sub").c_str(), 0755);
  ASSERT_EQ(::chmod((folder / "listed").c_str(), 0744), 0);
  AsUser user(65534);
  auto all = listed(folder / "listed", 16384);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all["sub"].objectType, static_cast<std::uint32_t>(VnodeType::Directory));
  EXPECT_EQ(all["file"].objectType, static_cast<std::uint32_t>(VnodeType::Regular));
  EXPECT_EQ(all["file"].returned.common, ATTR_CMN_OBJTYPE | ATTR_CMN_NAME);
}

TEST(GetAttrListBulk, LeavesOutWhatVanishesMeanwhile) {
  TemporaryFolder folder;
  std::atomic<bool> done = false;
  for (int i = 0; i < 200; ++i) folder.write("stays " + std::to_string(i), "");
  std::thread churn([&] {
    while (!done) {
      for (int i = 0; i < 50; ++i) folder.write("comes and goes " + std::to_string(i), "");
      for (int i = 0; i < 50; ++i) {
        ::unlink((folder / ("comes and goes " + std::to_string(i))).c_str());
      }
    }
  });
  for (int round = 0; round < 20; ++round) {
    FileDescriptor open(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    BulkBuffer buffer;
    std::size_t stayed = 0;
    int count;
    while ((count = AttributeCalls::current().getattrlistbulk(open.get(), kEverything, buffer, 0)) >
           0) {
      for (auto& entry : buffer.entries()) {
        EXPECT_TRUE(entry.hasAttributes());
        if (std::string(entry.name).starts_with("stays")) ++stayed;
      }
    }
    EXPECT_EQ(count, 0);
    EXPECT_EQ(stayed, 200u);
  }
  done = true;
  churn.join();
}

TEST(GetAttrListBulk, LeavesOutWhatVanishesAfterItsNameWasRead) {
  TemporaryFolder folder;
  for (int i = 0; i < 100; ++i) folder.write("x" + std::to_string(i), "");
  FileDescriptor open(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  BulkBuffer buffer;
  auto readBatch = [&] {
    return AttributeCalls::current().getattrlistbulk(open.get(), kEverything, buffer, 0);
  };
  ASSERT_EQ(readBatch(), 64);
  EXPECT_FALSE(buffer.unread().empty());
  std::filesystem::remove_all(folder.path());
  EXPECT_LE(readBatch(), 0);
  EXPECT_TRUE(buffer.entries().empty());
}

TEST(GetAttrListBulk, NumbersTheNamesThatSeveralBuffersRead) {
  TemporaryFolder folder;
  for (int i = 0; i < 300; ++i) folder.write("x" + std::to_string(i), "");
  FileDescriptor open(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  BulkTurns turns;
  BulkBuffer one(turns, 2048), other(turns, 2048);
  std::map<std::uint64_t, std::vector<std::string>> names;
  auto read = [&](BulkBuffer& buffer) {
    if (AttributeCalls::current().getattrlistbulk(open.get(), kEverything, buffer, 0) == 0) {
      return false;
    }
    for (auto& entry : buffer.entries()) names[buffer.number()].emplace_back(entry.name);
    return true;
  };
  EXPECT_TRUE(read(one));
  EXPECT_TRUE(one.isFull());
  while (read(other)) read(one);
  EXPECT_FALSE(read(one));
  EXPECT_FALSE(one.isFull());
  EXPECT_GT(names.size(), 2u);
  std::vector<std::string> all;
  for (auto& [number, some] : names) all.insert(all.end(), some.begin(), some.end());
  EXPECT_EQ(::lseek(open.get(), 0, SEEK_SET), 0);
  std::vector<std::string> inOrder;
  BulkBuffer alone;
  while (AttributeCalls::current().getattrlistbulk(open.get(), kEverything, alone, 0) > 0) {
    for (auto& entry : alone.entries()) inOrder.emplace_back(entry.name);
  }
  EXPECT_EQ(all, inOrder);
  EXPECT_EQ(all.size(), 300u);
}

TEST(GetAttrListBulk, FailsOnWhatIsNoFolder) {
  TemporaryFolder folder;
  FileDescriptor file(::open(folder.write("x", "").c_str(), O_RDONLY | O_CLOEXEC));
  BulkBuffer buffer;
  EXPECT_EQ(AttributeCalls::current().getattrlistbulk(file.get(), kEverything, buffer, 0), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

}  // namespace
}  // namespace hoist::attrlist
