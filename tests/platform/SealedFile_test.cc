// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/SealedFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/FileReading.h"
#include "platform/SystemCall.h"
#include "support/TemporaryFolder.h"

namespace hoist::platform {
namespace {

constexpr std::uint64_t kMaximum = 64 * 1024 * 1024;

std::string contentOf(const SealedFile& file) {
  const auto bytes = readWhole(file.descriptor(), kMaximum);
  return {bytes.begin(), bytes.end()};
}

std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 31 + (i >> 8));
  return text;
}

TEST(SealedFile, HoldsTheBytesAndTheirDigests) {
  const TemporaryFolder folder;
  for (const std::size_t size : {0u, 1u, 131'071u, 131'072u, 131'073u, 1'000'000u}) {
    const auto content = pattern(size);
    const auto file = openRegularFile(folder.write("file", content));
    const auto copy = SealedFile::copyOf(file.get(), kMaximum, "test");
    EXPECT_EQ(contentOf(copy), content) << size;
    EXPECT_EQ(copy.size(), size);
    EXPECT_EQ(copy.sha1(), sha1OfFile(copy.descriptor(), kMaximum)) << size;
    EXPECT_EQ(copy.sha256(), sha256OfFile(copy.descriptor(), kMaximum)) << size;
    EXPECT_EQ(copy.sha256(), sha256OfFile(file.get(), kMaximum)) << size;
  }
}

TEST(SealedFile, StaysWhatItWasWhenTheFileChanges) {
  const TemporaryFolder folder;
  const auto path = folder.write("file", "before");
  const auto file = openRegularFile(path);
  const auto copy = SealedFile::copyOf(file.get(), kMaximum, "test");
  folder.write("file", "after!");
  EXPECT_EQ(contentOf(copy), "before");
}

TEST(SealedFile, IsACopyOfAFileWithTheSameBytesAndOfNoOther) {
  const TemporaryFolder folder;
  for (const std::size_t size : {0u, 1u, 32'767u, 32'768u, 32'769u, 65'536u, 1'000'000u}) {
    const auto content = pattern(size);
    const auto copy =
        SealedFile::copyOf(openRegularFile(folder.write("file", content)).get(), kMaximum, "test");
    const auto isCopyOf = [&](const std::string& other) {
      return copy.isCopyOf(openRegularFile(folder.write("other", other)).get());
    };
    EXPECT_TRUE(isCopyOf(content)) << size;
    EXPECT_FALSE(isCopyOf(content + "x")) << size;
    EXPECT_FALSE(isCopyOf(content + pattern(32'768))) << size;
    for (const std::size_t place : {std::size_t{0}, size / 2, size - 1}) {
      if (place >= size) continue;
      auto changed = content;
      changed[place] ^= 1;
      EXPECT_FALSE(isCopyOf(changed)) << size << " " << place;
      EXPECT_FALSE(isCopyOf(content.substr(0, place))) << size << " " << place;
    }
  }
}

TEST(SealedFile, IsNoCopyOfWhatCannotBeRead) {
  const TemporaryFolder folder;
  const auto path = folder.write("file", "content");
  const auto copy = SealedFile::copyOf(openRegularFile(path).get(), kMaximum, "test");
  const FileDescriptor writing(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_THROW(copy.isCopyOf(writing.get()), SystemCallError);
}

TEST(SealedFile, CannotBeChangedEvenByItsMaker) {
  const TemporaryFolder folder;
  const auto file = openRegularFile(folder.write("file", "content"));
  const auto copy = SealedFile::copyOf(file.get(), kMaximum, "test");
  const int fd = copy.descriptor();
  EXPECT_EQ(pwrite(fd, "X", 1, 0), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(ftruncate(fd, 3), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(ftruncate(fd, 4096), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0), MAP_FAILED);
  EXPECT_EQ(fcntl(fd, F_ADD_SEALS, F_SEAL_WRITE), -1);
  EXPECT_EQ(errno, EPERM);
  // Neither can whoever opens it anew.
  const auto link = "/proc/self/fd/" + std::to_string(fd);
  const FileDescriptor again(open(link.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(again);
  EXPECT_EQ(write(again.get(), "X", 1), -1);
  EXPECT_EQ(contentOf(copy), "content");
}

TEST(SealedFile, IsNotInheritedByChildren) {
  const TemporaryFolder folder;
  const auto file = openRegularFile(folder.write("file", "content"));
  const auto copy = SealedFile::copyOf(file.get(), kMaximum, "test");
  EXPECT_NE(fcntl(copy.descriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(SealedFile, OfAProgramCanBeExecuted) {
  const auto file = openRegularFile("/bin/true");
  const auto copy = SealedFile::copyOf(file.get(), kMaximum, "test");
  const pid_t child = fork();
  if (child == 0) {
    char name[] = "true";
    char* arguments[] = {name, nullptr};
    char* environment[] = {nullptr};
    fexecve(copy.descriptor(), arguments, environment);
    _exit(126);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(SealedFile, RefusesWhatIsTooLargeOrNoRegularFile) {
  const TemporaryFolder folder;
  const auto file = openRegularFile(folder.write("file", "12345"));
  EXPECT_EQ(SealedFile::copyOf(file.get(), 5, "test").size(), 5u);
  EXPECT_THROW(SealedFile::copyOf(file.get(), 4, "test"), SystemCallError);
  const FileDescriptor zero(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  EXPECT_THROW(SealedFile::copyOf(zero.get(), kMaximum, "test"), SystemCallError);
  const FileDescriptor directory(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_THROW(SealedFile::copyOf(directory.get(), kMaximum, "test"), SystemCallError);
}

TEST(SealedFile, LeavesNoDescriptorBehindWhenItFails) {
  const TemporaryFolder folder;
  const auto file = openRegularFile(folder.write("file", "12345"));
  const auto lowestFree = [] { return FileDescriptor(dup(0)).get(); };
  const int before = lowestFree();
  EXPECT_THROW(SealedFile::copyOf(file.get(), 4, "test"), SystemCallError);
  EXPECT_EQ(lowestFree(), before);
}

}  // namespace
}  // namespace hoist::platform
