// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "codesign/Seal.h"
#include "codesign/SmallBundle.h"
#include "platform/ChildTask.h"
#include "platform/FileReading.h"

namespace hoist::codesign {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

struct Outcome {
  int status;
  std::string output;
  std::string errors;
};

std::string readAll(int fd) {
  std::string text;
  char buffer[4096];
  while (const ssize_t count = read(fd, buffer, sizeof buffer)) {
    if (count < 0) throw std::runtime_error("read");
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

Outcome run(const std::string& program, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment = {}) {
  auto output = makePipe();
  auto errors = makePipe();
  ChildTaskOptions options;
  options.launchPath = program;
  options.arguments = arguments;
  options.environment = environment;
  options.environment->emplace("PATH", "/usr/bin:/bin");
  options.standardOutput = output.writing.get();
  options.standardError = errors.writing.get();
  const auto task = ChildTask::launch(options);
  output.writing.reset();
  errors.writing.reset();
  // What the tool prints fits into the pipes.
  Outcome outcome{0, readAll(output.reading.get()), readAll(errors.reading.get())};
  task->waitUntilExit();
  outcome.status = task->terminationStatus();
  return outcome;
}

// The program itself, with files that the example script and the openssl program make.
class Tool : public testing::Test {
 protected:
  Tool() {
    const auto made = run(HOIST_SOURCE_DIR "/examples/signing/make-identity", {identity_, "Test"});
    EXPECT_EQ(made.status, 0) << made.errors;
  }
  Outcome codesign(const std::vector<std::string>& arguments) {
    return run(HOIST_BUILD_DIR "/bin/codesign", arguments);
  }
  Outcome sign() {
    return codesign({"--sign", "--key", identity_ + "/signer.key", "--cert",
                     identity_ + "/signer.pem", bundle_.path()});
  }
  Outcome verify() {
    return codesign({"--verify", "--trust", identity_ + "/trust", bundle_.path()});
  }
  std::string sealPath() const { return bundle_ / std::string(kSealPath); }
  std::string signaturePath() const { return bundle_ / std::string(kSignaturePath); }

  SmallBundle bundle_;
  std::string identity_ = bundle_.folder() / "identity";
};

TEST_F(Tool, SignsAndVerifies) {
  const auto made = sign();
  EXPECT_EQ(made.status, 0) << made.errors;
  EXPECT_EQ(made.output, "");
  const auto verified = verify();
  EXPECT_EQ(verified.status, 0) << verified.errors;
  EXPECT_EQ(verified.errors, "");
  const auto file = platform::openRegularFile(bundle_ / "Contents/Linux/small");
  EXPECT_EQ(verified.output,
            platform::hexadecimal(platform::sha256OfFile(file.get(), 1'000)) + "\n");
}

TEST_F(Tool, SaysInOneLineWhatIsWrongAndWhichFile) {
  sign();
  bundle_.write("Contents/new", "");
  const auto verified = verify();
  EXPECT_EQ(verified.status, 1);
  EXPECT_EQ(verified.output, "");
  EXPECT_EQ(verified.errors,
            "codesign: " + bundle_.path() + ": Contents/new: is a file that is not sealed\n");
}

TEST_F(Tool, TrustsTheMachinesFolderOnlyUnlessToldOtherwise) {
  sign();
  const auto verified = run(HOIST_BUILD_DIR "/bin/codesign", {"--verify", bundle_.path()},
                            {{"TRUST", identity_ + "/trust"},
                             {"SSL_CERT_DIR", identity_ + "/trust"},
                             {"SSL_CERT_FILE", identity_ + "/trust/anchor.pem"},
                             {"OPENSSL_CONF", identity_ + "/none"}});
  EXPECT_EQ(verified.status, 1);
  EXPECT_EQ(verified.output, "");
}

TEST_F(Tool, VerifiesWhatAnotherProgramSigned) {
  sign();
  const auto signedByOther =
      run("/usr/bin/openssl", {"cms", "-sign", "-binary", "-outform", "DER", "-md", "sha256", "-in",
                               sealPath(), "-out", signaturePath(), "-signer",
                               identity_ + "/signer.pem", "-inkey", identity_ + "/signer.key"});
  ASSERT_EQ(signedByOther.status, 0) << signedByOther.errors;
  const auto verified = verify();
  EXPECT_EQ(verified.status, 0) << verified.errors;
}

TEST_F(Tool, SignsSoThatAnotherProgramVerifies) {
  sign();
  const auto verified = run("/usr/bin/openssl",
                            {"cms", "-verify", "-binary", "-inform", "DER", "-in", signaturePath(),
                             "-content", sealPath(), "-CAfile", identity_ + "/trust/anchor.pem",
                             "-purpose", "any", "-out", "/dev/null"});
  EXPECT_EQ(verified.status, 0) << verified.errors;
}

TEST_F(Tool, DisplaysWithoutVerifying) {
  sign();
  bundle_.write("Contents/new", "");
  const auto shown = codesign({"--display", bundle_.path()});
  EXPECT_EQ(shown.status, 0) << shown.errors;
  EXPECT_THAT(shown.output, AllOf(HasSubstr("CN=Test"), HasSubstr("com.kelvo.small")));
}

TEST_F(Tool, RefusesToSignWithWhatDoesNotFit) {
  const TestSigner test;
  const auto mail = makeIdentity({.extendedKeyUsage = "emailProtection"});
  const auto old = makeIdentity({.validFrom = -7200, .validUntil = -3600});
  const auto& folder = bundle_.folder();
  const auto write = [&](const std::string& name, const Identity& identity) {
    folder.write(name + ".pem", pemOf(identity.certificate));
    folder.write(name + ".key", pemOf(identity.key));
  };
  write("good", test.signer);
  write("mail", mail);
  write("old", old);
  folder.write("bad.pem", "nothing");
  const struct {
    const char *key, *certificate, *chain, *problem;
  } kCases[] = {
      {"good.key", "mail.pem", "good.pem", "mail.pem: belongs to another key"},
      {"mail.key", "mail.pem", "good.pem", "mail.pem: the certificate is not for code signing"},
      {"old.key", "old.pem", "good.pem", "old.pem: the certificate has expired"},
      {"bad.pem", "good.pem", "good.pem", "bad.pem: holds no private key"},
      {"good.key", "bad.pem", "good.pem", "bad.pem: holds no certificate"},
      {"good.key", "good.pem", "bad.pem", "bad.pem: holds no certificate"},
      {"none", "good.pem", "good.pem", "none: No such file"},
  };
  for (const auto& c : kCases) {
    const auto made = codesign({"--sign", "--key", folder / c.key, "--cert", folder / c.certificate,
                                "--chain", folder / c.chain, bundle_.path()});
    EXPECT_EQ(made.status, 1) << c.problem;
    EXPECT_THAT(made.errors, AllOf(StartsWith("codesign: "), HasSubstr(c.problem)));
  }
  EXPECT_FALSE(std::filesystem::exists(sealPath()));
}

TEST_F(Tool, WrongUsageEndsWithTwo) {
  const std::vector<std::vector<std::string>> kCases = {
      {},
      {"--verify"},
      {bundle_.path()},
      {"--verify", "--display", bundle_.path()},
      {"--sign", bundle_.path()},
      {"--verify", "--key", "x", bundle_.path()},
      {"--verify", bundle_.path(), "another"},
      {"--verify", "--time-limit", "0", bundle_.path()},
      {"--sign", "--key", "x", "--cert", "x", "--time-limit", "1", bundle_.path()},
      {"--nonsense", bundle_.path()}};
  for (const auto& arguments : kCases) {
    const auto outcome = codesign(arguments);
    EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.output, "");
    EXPECT_NE(outcome.errors, "");
  }
}

TEST_F(Tool, APathThatIsNoBundleIsInvalid) {
  for (const auto& path :
       {std::string("/nonexistent"), std::string("/"), std::string("/dev/null"),
        std::string("relative"), std::string(100'000, 'x'), std::string("a\nb")}) {
    const auto outcome = codesign({"--verify", "--trust", identity_ + "/trust", path});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
    EXPECT_THAT(outcome.errors, EndsWith("\n"));
  }
}

TEST_F(Tool, NamesInOneLineTheFileThatItCannotRead) {
  const auto expectOneLine = [&](const std::vector<std::string>& arguments) {
    const auto outcome = codesign(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, MatchesRegex("codesign: [^\n]*no%0Asuch: No such file[^\n]*\n"));
  };
  const auto key = identity_ + "/signer.key", certificate = identity_ + "/signer.pem";
  expectOneLine({"--sign", "--key", "no\nsuch", "--cert", certificate, bundle_.path()});
  expectOneLine({"--sign", "--key", key, "--cert", "no\nsuch", bundle_.path()});
  expectOneLine({"--verify", "--trust", "no\nsuch", bundle_.path()});
}

TEST_F(Tool, FollowsNoLinkWhenItClearsUpBehindASigningThatWasKilled) {
  const auto precious = bundle_.folder().write("elsewhere/CodeResources.new", "precious");
  std::filesystem::create_directory_symlink(bundle_.folder() / "elsewhere",
                                            bundle_ / std::string(kSealFolder));
  EXPECT_EQ(sign().status, 1);
  EXPECT_TRUE(std::filesystem::exists(precious));
}

TEST_F(Tool, EndsWithItsStatusThoughNobodyCanBeTold) {
  for (const char* errors : {"2>/dev/full", "2>&-"}) {
    const auto command = std::string("exec \"$0\" --verify /nonexistent ") + errors;
    EXPECT_EQ(run("/bin/sh", {"-c", command, HOIST_BUILD_DIR "/bin/codesign"}).status, 1) << errors;
  }
}

TEST_F(Tool, StopsAtItsTimeLimit) {
  // Digesting this takes a tenth of a second at least.
  std::filesystem::resize_file(bundle_.write("Contents/huge", ""), 200'000'000);
  ASSERT_EQ(sign().status, 0);
  EXPECT_EQ(verify().status, 0);
  const auto stopped = codesign(
      {"--verify", "--time-limit", "0.02", "--trust", identity_ + "/trust", bundle_.path()});
  EXPECT_EQ(stopped.status, 1);
  EXPECT_EQ(stopped.output, "");
  EXPECT_EQ(stopped.errors, "codesign: took longer than its time limit\n");
}

TEST_F(Tool, StopsAtItsTimeLimitThoughAFileSystemNeverAnswers) {
  // A file system in user space whose server, this test, answers nothing.
  const FileDescriptor server(open("/dev/fuse", O_RDWR | O_CLOEXEC));
  const auto place = bundle_.folder() / "Silent.app";
  std::filesystem::create_directory(place);
  const auto options =
      fmt::format("fd={},rootmode=40000,user_id=0,group_id=0,allow_other", server.get());
  if (!server || mount("silent", place.c_str(), "fuse", 0, options.c_str()) != 0) {
    GTEST_SKIP() << "nothing can be mounted here";
  }
  const auto stopped =
      codesign({"--verify", "--time-limit", "0.1", "--trust", identity_ + "/trust", place});
  EXPECT_EQ(stopped.status, 1);
  EXPECT_EQ(stopped.errors, "codesign: took longer than its time limit\n");
  EXPECT_EQ(umount2(place.c_str(), MNT_DETACH), 0);
}

}  // namespace
}  // namespace hoist::codesign
