// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/TrustStore.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "codesign/Identities.h"
#include "codesign/SmallBundle.h"

namespace hoist::codesign {
namespace {

using testing::HasSubstr;

constexpr uid_t kSomebodyElse = 4711;

class TrustFolder : public testing::Test {
 protected:
  TrustFolder() {
    std::filesystem::create_directory(path_);
    EXPECT_EQ(chmod(path_.c_str(), 0755), 0);
  }
  void writeAnchor(const std::string& name = "a.pem") {
    folder_.write("trust/" + name, pemOf(test_.authority.certificate));
  }
  std::string problem() {
    return problemOf([&] { TrustStore::ofFolder(path_); });
  }
  bool trusts(const Identity& signer) {
    const auto trust = TrustStore::ofFolder(path_);
    return problemOf([&] { trust.requireTrusted(signer.certificate.get(), nullptr); }).empty();
  }

  TestSigner test_;
  TemporaryFolder folder_;
  std::string path_ = folder_ / "trust";
};

TEST_F(TrustFolder, EveryCertificateOfEveryPemFileIsAnAnchor) {
  const TestSigner second("Second");
  const TestSigner third("Third");
  folder_.write("trust/a.pem", "Some words before it.\n" + pemOf(test_.authority.certificate) +
                                   pemOf(second.authority.certificate));
  folder_.write("trust/b.pem", pemOf(third.authority.certificate));
  EXPECT_TRUE(trusts(test_.signer));
  EXPECT_TRUE(trusts(second.signer));
  EXPECT_TRUE(trusts(third.signer));
  EXPECT_FALSE(trusts(TestSigner().signer));
}

TEST_F(TrustFolder, OtherFilesDoNotCount) {
  writeAnchor();
  const TestSigner other;
  folder_.write("trust/other.crt", pemOf(other.authority.certificate));
  folder_.write("trust/README", "nothing");
  EXPECT_FALSE(trusts(other.signer));
}

TEST_F(TrustFolder, ThatIsMissingOrEmptyIsRefused) {
  EXPECT_THAT(problem(), HasSubstr("holds no trust anchor"));
  std::filesystem::remove(path_);
  EXPECT_THAT(problem(), HasSubstr("No such file"));
  folder_.write("trust", "a file");
  EXPECT_THAT(problem(), HasSubstr("Not a directory"));
}

TEST_F(TrustFolder, WithADamagedFileIsRefused) {
  writeAnchor();
  const auto pem = pemOf(test_.authority.certificate);
  for (const auto& damaged :
       {std::string(), std::string("nothing"), pem.substr(0, pem.size() / 2),
        pem + "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"}) {
    folder_.write("trust/b.pem", damaged);
    EXPECT_THAT(problem(), HasSubstr("b.pem: holds no certificate or a damaged one")) << damaged;
  }
}

TEST_F(TrustFolder, ThatOthersCanChangeIsRefused) {
  writeAnchor();
  EXPECT_EQ(problem(), "");
  ASSERT_EQ(chmod(path_.c_str(), 0775), 0);
  EXPECT_THAT(problem(), HasSubstr("trust: can be changed by others"));
  ASSERT_EQ(chmod(path_.c_str(), 0755), 0);
  ASSERT_EQ(chmod((path_ + "/a.pem").c_str(), 0646), 0);
  EXPECT_THAT(problem(), HasSubstr("a.pem: can be changed by others"));
}

TEST_F(TrustFolder, OfSomebodyElseIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  writeAnchor();
  ASSERT_EQ(chown(path_.c_str(), kSomebodyElse, 0), 0);
  EXPECT_THAT(problem(), HasSubstr("trust: belongs to somebody else"));
  ASSERT_EQ(chown(path_.c_str(), 0, 0), 0);
  ASSERT_EQ(chown((path_ + "/a.pem").c_str(), kSomebodyElse, 0), 0);
  EXPECT_THAT(problem(), HasSubstr("a.pem: belongs to somebody else"));
}

TEST_F(TrustFolder, AFIFOInItHoldsNobodyUp) {
  writeAnchor();
  ASSERT_EQ(mkfifo((path_ + "/b.pem").c_str(), 0600), 0);
  EXPECT_NE(problem(), "");
}

}  // namespace
}  // namespace hoist::codesign
