// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "codesign/Limits.h"
#include "codesign/Seal.h"
#include "codesign/SmallBundle.h"
#include "platform/FileReading.h"

namespace hoist::codesign {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

std::string read(const std::string& path) {
  const auto bytes = platform::readWhole(platform::openRegularFile(path).get(), 100'000'000);
  return {bytes.begin(), bytes.end()};
}

std::string sha256OfFile(const std::string& path) {
  const auto file = platform::openRegularFile(path);
  return platform::hexadecimal(platform::sha256OfFile(file.get(), 100'000'000));
}

// A signed bundle.
class SignedBundle : public testing::Test {
 protected:
  SignedBundle() { sign(); }

  void sign() { signBundle(bundle_.path(), test_.signer); }
  // Puts a signature of the trusted signer over whatever the text is.
  void signText(std::string_view text) {
    bundle_.write(std::string(kSealPath), text);
    bundle_.write(std::string(kSignaturePath), makeSignature(text, test_.signer));
  }
  std::string problem() {
    return problemOf([&] { verifyBundle(bundle_.path(), trust_); });
  }

  TestSigner test_;
  TrustStore trust_ = test_.trust();
  SmallBundle bundle_;
};

TEST_F(SignedBundle, IsValidAndAnswersTheDigestOfItsExecutable) {
  EXPECT_EQ(verifyBundle(bundle_.path(), trust_), sha256OfFile(bundle_ / "Contents/Linux/small"));
}

TEST_F(SignedBundle, IsValidAfterItWasMovedCopiedAndInstalled) {
  const auto other = bundle_.folder() / "Other.app";
  fs::copy(bundle_.path(), other, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  const auto executable = other + "/Contents/Linux/small";
  ASSERT_EQ(chmod(executable.c_str(), 06755), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(executable.c_str(), 4711, 4711), 0);
    ASSERT_EQ(chmod(executable.c_str(), 06755), 0);
  }
  EXPECT_EQ(problemOf([&] { verifyBundle(other, trust_); }), "");
}

TEST_F(SignedBundle, IsInvalidOnceAnythingIsDifferent) {
  const struct {
    const char* what;
    std::function<void()> change;
    const char* problem;
  } kChanges[] = {
      {"a file added", [&] { bundle_.write("Contents/new", ""); },
       "Contents/new: is a file that is not sealed"},
      {"a file added at the root", [&] { bundle_.write("new\nline", ""); },
       "new%0Aline: is a file that is not sealed"},
      {"a file added beside the seal", [&] { bundle_.write("Contents/_CodeSignature/x", ""); },
       "Contents/_CodeSignature/x: is a file that is not sealed"},
      {"a folder added", [&] { fs::create_directory(bundle_ / "Contents/new"); },
       "Contents/new: is a folder that is not sealed"},
      {"a link added", [&] { fs::create_symlink("x", bundle_ / "Contents/new"); },
       "Contents/new: is a link that is not sealed"},
      {"a FIFO added", [&] { mkfifo((bundle_ / "Contents/new").c_str(), 0600); },
       "Contents/new: is neither a file, a folder nor a link"},
      {"a file removed", [&] { fs::remove(bundle_ / "Contents/Resources/empty"); },
       "Contents/Resources/empty: is sealed but missing"},
      {"a folder removed", [&] { fs::remove(bundle_ / "Contents/Plugins"); },
       "Contents/Plugins: is sealed but missing"},
      {"a link removed", [&] { fs::remove(bundle_ / "Contents/link"); },
       "Contents/link: is sealed but missing"},
      {"a byte changed",
       [&] {
         auto text = read(bundle_ / "Contents/Linux/small");
         text[5] ^= 1;
         bundle_.write("Contents/Linux/small", text);
       },
       "Contents/Linux/small: has other content than was sealed"},
      {"a file emptied", [&] { fs::resize_file(bundle_ / "Contents/Resources/large", 0); },
       "Contents/Resources/large: has other content than was sealed"},
      {"an empty file filled", [&] { bundle_.write("Contents/Resources/empty", "x"); },
       "Contents/Resources/empty: has other content than was sealed"},
      {"Info.plist changed",
       [&] { bundle_.write("Contents/Info.plist", read(bundle_ / "Contents/Info.plist") + " "); },
       "Contents/Info.plist: has other content than was sealed"},
      {"a file's mode changed", [&] { chmod((bundle_ / "Contents/Info.plist").c_str(), 0666); },
       "Contents/Info.plist: has mode 0666, sealed was 0644"},
      {"a folder's mode changed", [&] { chmod((bundle_ / "Contents/Plugins").c_str(), 0777); },
       "Contents/Plugins: has mode 0777, sealed was 0755"},
      {"a link turned",
       [&] {
         fs::remove(bundle_ / "Contents/link");
         fs::create_symlink("Resources/empty", bundle_ / "Contents/link");
       },
       "Contents/link: is a link that points elsewhere than it was sealed"},
      {"a file become a link to the same content",
       [&] {
         fs::rename(bundle_ / "Contents/Resources/large", bundle_.folder() / "large");
         fs::create_symlink(bundle_.folder() / "large", bundle_ / "Contents/Resources/large");
       },
       "Contents/Resources/large: is a link that is not sealed"},
      {"a folder become a link to the same content",
       [&] {
         fs::rename(bundle_ / "Contents/Resources", bundle_.folder() / "Resources");
         fs::create_directory_symlink(bundle_.folder() / "Resources",
                                      bundle_ / "Contents/Resources");
       },
       "Contents/Resources: is a link that is not sealed"},
      {"a file become a folder",
       [&] {
         fs::remove(bundle_ / "Contents/Resources/empty");
         fs::create_directory(bundle_ / "Contents/Resources/empty");
       },
       "Contents/Resources/empty: is a folder that is not sealed"},
      {"no seal", [&] { fs::remove(bundle_ / std::string(kSealPath)); },
       "Contents/_CodeSignature/CodeResources: No such file or directory"},
      {"no signature", [&] { fs::remove(bundle_ / std::string(kSignaturePath)); },
       "Contents/_CodeSignature/CodeSignature: No such file or directory"},
      {"an empty signature", [&] { bundle_.write(std::string(kSignaturePath), ""); },
       "Contents/_CodeSignature/CodeSignature: is not a CMS structure"},
      {"a seal that is a link out of the bundle",
       [&] {
         fs::rename(bundle_ / std::string(kSealPath), bundle_.folder() / "seal");
         fs::create_symlink(bundle_.folder() / "seal", bundle_ / std::string(kSealPath));
       },
       "Contents/_CodeSignature/CodeResources: Too many levels of symbolic links"},
      {"a seal that is a FIFO",
       [&] {
         fs::remove(bundle_ / std::string(kSealPath));
         mkfifo((bundle_ / std::string(kSealPath)).c_str(), 0600);
       },
       "Contents/_CodeSignature/CodeResources: Invalid argument"},
      {"a seal changed",
       [&] { bundle_.write(std::string(kSealPath), read(bundle_ / std::string(kSealPath)) + " "); },
       "Contents/_CodeSignature/CodeSignature: is not a signature over this seal"},
      {"a seal too large",
       [&] { fs::resize_file(bundle_ / std::string(kSealPath), kMaximumSealBytes + 1); },
       "Contents/_CodeSignature/CodeResources: is too large or was changed while it was read"},
      {"the signature of another bundle",
       [&] {
         const SmallBundle other;
         other.write("Contents/Resources/large", "different");
         signBundle(other.path(), test_.signer);
         bundle_.write(std::string(kSignaturePath), read(other / std::string(kSignaturePath)));
       },
       "Contents/_CodeSignature/CodeSignature: is not a signature over this seal"},
  };
  const auto pristine = bundle_.folder() / "Pristine.app";
  const auto keep = fs::copy_options::recursive | fs::copy_options::copy_symlinks;
  fs::copy(bundle_.path(), pristine, keep);
  for (const auto& c : kChanges) {
    ASSERT_EQ(problem(), "") << "before: " << c.what;
    c.change();
    EXPECT_EQ(problem(), c.problem) << c.what;
    fs::remove_all(bundle_.path());
    fs::copy(pristine, bundle_.path(), keep);
  }
}

TEST_F(SignedBundle, OfAnUnknownSignerIsInvalid) {
  trust_ = TestSigner().trust();
  EXPECT_THAT(problem(), StartsWith("Contents/_CodeSignature/CodeSignature: signer"));
}

TEST_F(SignedBundle, WithASealThatIsNoneIsInvalidThoughItIsSigned) {
  signText("not a seal");
  EXPECT_THAT(problem(), HasSubstr("is not an XML property list"));
  signText(textOfSeal({}));
  EXPECT_THAT(problem(), HasSubstr("is not sealed"));
}

TEST_F(SignedBundle, WithASealFromAStrangerIsNotEvenParsed) {
  bundle_.write(std::string(kSealPath), "not a seal");
  EXPECT_THAT(problem(), HasSubstr("is not a signature over this seal"));
}

TEST_F(SignedBundle, AnUnsealedFileIsNotRead) {
  // Digesting this one would take minutes.
  fs::resize_file(bundle_.write("Contents/aaa", ""), kMaximumContentBytes - 1'000'000);
  EXPECT_EQ(problem(), "Contents/aaa: is a file that is not sealed");
  fs::remove(bundle_ / "Contents/aaa");
  fs::resize_file(bundle_ / "Contents/Resources/large", kMaximumContentBytes - 1'000'000);
  EXPECT_EQ(problem(), "Contents/Resources/large: has other content than was sealed");
}

TEST_F(SignedBundle, AnswersNoOtherDigestWhileItsExecutableIsRewritten) {
  const auto executable = bundle_ / "Contents/Linux/small";
  const auto good = read(executable);
  const auto digest = sha256OfFile(executable);
  const auto evil = std::string(good.size(), 'e');
  std::jthread rewriter([&](std::stop_token stop) {
    const FileDescriptor file(open(executable.c_str(), O_WRONLY | O_CLOEXEC));
    // Now and then long enough for a whole verification to find either content undisturbed.
    for (int pause = 0; !stop.stop_requested(); pause = (pause + 50) % 5000) {
      for (const auto& content : {evil, good}) {
        EXPECT_GT(pwrite(file.get(), content.data(), content.size(), 0), 0);
        for (int i = 0; i < pause; ++i) std::this_thread::yield();
      }
    }
  });
  int valid = 0;
  int invalid = 0;
  for (int round = 0; round < 20'000 && (round < 300 || valid == 0 || invalid == 0); ++round) {
    const auto said = problemOf([&] {
      EXPECT_EQ(verifyBundle(bundle_.path(), trust_), digest);
      ++valid;
    });
    if (!said.empty()) ++invalid;
  }
  // Both happened, or the race was none.
  EXPECT_GT(valid, 0);
  EXPECT_GT(invalid, 0);
}

TEST_F(SignedBundle, CanBeSignedAgainAfterAChange) {
  bundle_.write("Contents/new", "");
  EXPECT_NE(problem(), "");
  sign();
  EXPECT_EQ(problem(), "");
}

TEST_F(SignedBundle, SigningRemovesWhatAKilledSigningLeft) {
  bundle_.write("Contents/_CodeSignature/CodeResources.new", "half");
  sign();
  EXPECT_EQ(problem(), "");
  EXPECT_FALSE(fs::exists(bundle_ / "Contents/_CodeSignature/CodeResources.new"));
}

TEST_F(SignedBundle, IsSealedExactlyWhateverTheUmask) {
  fs::remove_all(bundle_ / "Contents/_CodeSignature");
  const mode_t before = umask(0077);
  sign();
  umask(before);
  EXPECT_EQ(problem(), "");
  struct stat status;
  ASSERT_EQ(stat((bundle_ / std::string(kSealPath)).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(SignedBundle, IsDescribed) {
  const auto text = describeBundle(bundle_.path());
  EXPECT_THAT(text, HasSubstr("com.kelvo.small\n"));
  EXPECT_THAT(text, HasSubstr("Contents/Linux/small\n"));
  EXPECT_THAT(text, HasSubstr(sha256OfFile(bundle_ / "Contents/Linux/small") + "\n"));
  EXPECT_THAT(text, HasSubstr("CN=Signer\n"));
  EXPECT_THAT(text, HasSubstr("files 4"));
}

class UnsignedBundle : public testing::Test {
 protected:
  std::string problemOfSigning() {
    return problemOf([&] { signBundle(bundle_.path(), test_.signer); });
  }
  void writeExecutableName(const std::string& name) {
    bundle_.write("Contents/Info.plist",
                  "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>" + name +
                      "</string></dict></plist>");
  }

  TestSigner test_;
  SmallBundle bundle_;
};

TEST_F(UnsignedBundle, WithoutAMainExecutableCannotBeSigned) {
  writeExecutableName("absent");
  EXPECT_THAT(problemOfSigning(), HasSubstr("names an executable that is not in the bundle"));
  writeExecutableName("../Linux/small");
  EXPECT_THAT(problemOfSigning(), HasSubstr("names no executable"));
  bundle_.write("Contents/Info.plist", "no property list");
  EXPECT_THAT(problemOfSigning(), HasSubstr("names no executable"));
  fs::remove(bundle_ / "Contents/Info.plist");
  EXPECT_EQ(problemOfSigning(), "Contents/Info.plist: is missing");
}

TEST_F(UnsignedBundle, IsLeftAsItWasWhenItCannotBeSigned) {
  ASSERT_EQ(mkfifo((bundle_ / "Contents/zzz").c_str(), 0600), 0);
  EXPECT_NE(problemOfSigning(), "");
  EXPECT_FALSE(fs::exists(bundle_ / std::string(kSealFolder)));
}

TEST_F(UnsignedBundle, TheExecutableIsLookedForInLinuxThenMacOSThenTheRoot) {
  const auto digest = [&] { return verifyBundle(bundle_.path(), test_.trust()); };
  for (const char* path : {"small", "Contents/MacOS/small", "Contents/Linux/small"}) {
    fs::remove(bundle_ / "Contents/Linux/small");
    bundle_.write(path, path);
    signBundle(bundle_.path(), test_.signer);
    EXPECT_EQ(digest(), sha256OfFile(bundle_ / path)) << path;
  }
}

TEST_F(UnsignedBundle, ALinkIsNoMainExecutable) {
  fs::remove(bundle_ / "Contents/Linux/small");
  fs::create_symlink("../Resources/large", bundle_ / "Contents/Linux/small");
  EXPECT_THAT(problemOfSigning(), HasSubstr("names an executable that is not in the bundle"));
}

TEST_F(UnsignedBundle, WithNamesOfAnyBytesIsSealedAndVerified) {
  for (const char* name : {"\xff\xfe", "line\nfeed", "%41", " ", "a&b<c>\"d'", "ünïcode", "-x"}) {
    bundle_.write(std::string("Contents/Resources/") + name, name);
    fs::create_symlink(name, bundle_ / (std::string("Contents/Plugins/") + name));
  }
  EXPECT_EQ(problemOfSigning(), "");
  EXPECT_EQ(problemOf([&] { verifyBundle(bundle_.path(), test_.trust()); }), "");
}

}  // namespace
}  // namespace hoist::codesign
