// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Digest.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>

#include "platform/FileReading.h"
#include "platform/SystemCall.h"
#include "support/TemporaryFolder.h"

namespace hoist::platform {
namespace {

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Answers of the published examples of both algorithms.
TEST(Digest, AnswersThePublishedDigests) {
  EXPECT_EQ(hexadecimal(sha1({})), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(hexadecimal(sha1(bytesOf("abc"))), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(hexadecimal(sha256(bytesOf("abc"))),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const std::string million(1'000'000, 'a');
  EXPECT_EQ(hexadecimal(sha1(bytesOf(million))), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
  EXPECT_EQ(hexadecimal(sha256(bytesOf(million))),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Digest, IsTheSameHoweverTheBytesAreCut) {
  const std::string text(1000, 'x');
  for (std::size_t cut : {0u, 1u, 63u, 64u, 65u, 999u, 1000u}) {
    SHA1Hasher one;
    SHA256Hasher two;
    for (auto part : {text.substr(0, cut), text.substr(cut)}) {
      one.update(bytesOf(part));
      two.update(bytesOf(part));
    }
    EXPECT_EQ(one.finish(), sha1(bytesOf(text))) << cut;
    EXPECT_EQ(two.finish(), sha256(bytesOf(text))) << cut;
  }
}

TEST(Digest, BeginsAnewAfterFinish) {
  SHA1Hasher hasher;
  hasher.update(bytesOf("something"));
  hasher.finish();
  hasher.update(bytesOf("abc"));
  EXPECT_EQ(hasher.finish(), sha1(bytesOf("abc")));
}

TEST(Digest, OfAFileIsThatOfItsBytesAndLeavesTheOffset) {
  const TemporaryFolder folder;
  std::string content;
  for (int i = 0; i < 100'000; ++i) content += std::to_string(i);
  const auto file = openRegularFile(folder.write("file", content));
  ASSERT_EQ(lseek(file.get(), 77, SEEK_SET), 77);
  EXPECT_EQ(sha1OfFile(file.get(), content.size()), sha1(bytesOf(content)));
  EXPECT_EQ(sha256OfFile(file.get(), content.size()), sha256(bytesOf(content)));
  EXPECT_EQ(lseek(file.get(), 0, SEEK_CUR), 77);
}

TEST(Digest, OfAFileLargerThanAllowedIsRefused) {
  const TemporaryFolder folder;
  const auto file = openRegularFile(folder.write("file", "12345"));
  EXPECT_EQ(sha1OfFile(file.get(), 5), sha1(bytesOf("12345")));
  try {
    sha1OfFile(file.get(), 4);
    FAIL() << "digested";
  } catch (const SystemCallError& error) {
    EXPECT_EQ(error.number(), EFBIG);
  }
}

TEST(Digest, OfAnUnreadableDescriptorThrows) {
  const TemporaryFolder folder;
  const FileDescriptor writing(open(folder.write("file", "x").c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_THROW(sha256OfFile(writing.get(), 100), SystemCallError);
}

}  // namespace
}  // namespace hoist::platform
