// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/FileReading.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/SystemCall.h"
#include "support/TemporaryFolder.h"

namespace hoist::platform {
namespace {

namespace fs = std::filesystem;

template <class Action>
int errorOf(Action&& action) {
  try {
    action();
    return 0;
  } catch (const SystemCallError& error) {
    return error.number();
  }
}

class FileReading : public testing::Test {
 protected:
  FileReading() {
    folder_.write("inside/file", "hello");
    folder_.write("outside", "secret");
    inside_ = FileDescriptor(open((folder_ / "inside").c_str(), O_PATH | O_CLOEXEC));
  }
  int errorOfOpening(const std::string& name) {
    return errorOf([&] { openRegularFile(folder_ / name); });
  }
  int errorOfOpeningBeneath(const std::string& name) {
    return errorOf([&] { openRegularFileBeneath(inside_.get(), name); });
  }

  TemporaryFolder folder_;
  FileDescriptor inside_;
};

TEST_F(FileReading, ReadsARegularFileWhole) {
  const auto file = openRegularFile(folder_ / "inside/file");
  EXPECT_THAT(readWhole(file.get(), 5), testing::ElementsAre('h', 'e', 'l', 'l', 'o'));
  EXPECT_NE(fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(FileReading, RefusesWhatIsNoRegularFileAtOnce) {
  ASSERT_EQ(mkfifo((folder_ / "inside/fifo").c_str(), 0600), 0);
  const FileDescriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (folder_ / "inside/socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(errorOfOpening("inside/fifo"), EINVAL);
  EXPECT_EQ(errorOfOpening("inside/socket"), ENXIO);
  EXPECT_EQ(errorOfOpening("inside"), EISDIR);
  EXPECT_EQ(errorOfOpening("absent"), ENOENT);
  EXPECT_EQ(errorOf([] { openRegularFile("/dev/zero"); }), EINVAL);
  EXPECT_EQ(errorOfOpeningBeneath("fifo"), EINVAL);
}

TEST_F(FileReading, FollowsNoLink) {
  fs::create_symlink("inside/file", folder_ / "link");
  fs::create_symlink("../outside", folder_ / "inside/link");
  fs::create_directory_symlink("..", folder_ / "inside/up");
  EXPECT_EQ(errorOfOpening("link"), ELOOP);
  EXPECT_EQ(errorOfOpeningBeneath("link"), ELOOP);
  EXPECT_EQ(errorOfOpeningBeneath("up/outside"), ELOOP);
  EXPECT_FALSE(isRegularFileBeneath(inside_.get(), "link"));
  EXPECT_FALSE(isRegularFileBeneath(inside_.get(), "up/outside"));
}

TEST_F(FileReading, StaysBeneathItsFolder) {
  EXPECT_EQ(errorOfOpeningBeneath("file"), 0);
  EXPECT_EQ(errorOfOpeningBeneath("../outside"), EXDEV);
  EXPECT_EQ(errorOfOpeningBeneath("/etc/passwd"), EXDEV);
  EXPECT_TRUE(isRegularFileBeneath(inside_.get(), "file"));
  EXPECT_FALSE(isRegularFileBeneath(inside_.get(), "../outside"));
  EXPECT_FALSE(isRegularFileBeneath(inside_.get(), "."));
}

TEST_F(FileReading, AFileThatGrowsWhileItIsReadComesToAnEnd) {
  const auto path = folder_.write("growing", "x");
  const auto file = openRegularFile(path);
  const FileDescriptor writing(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  const auto grow = [&](std::span<const std::uint8_t>) {
    ASSERT_EQ(write(writing.get(), "x", 1), 1);
  };
  EXPECT_EQ(errorOf([&] { readInChunks(file.get(), 50, grow); }), EFBIG);
}

TEST_F(FileReading, AnEmptyFileHasNoChunks) {
  const auto file = openRegularFile(folder_.write("empty", ""));
  EXPECT_EQ(readInChunks(file.get(), 0, [](auto) { FAIL() << "a chunk"; }), 0u);
}

}  // namespace
}  // namespace hoist::platform
