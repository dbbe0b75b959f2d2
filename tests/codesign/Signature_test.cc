// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <openssl/err.h>

#include "codesign/Identities.h"
#include "codesign/Limits.h"
#include "codesign/SmallBundle.h"
#include "platform/Clock.h"

namespace hoist::codesign {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr std::string_view kContent = "what is signed";
constexpr unsigned kFlags = CMS_BINARY | CMS_DETACHED | CMS_NOSMIMECAP | CMS_PARTIAL;

std::string derOf(CMS_ContentInfo* cms) {
  unsigned char* der = nullptr;
  const int size = i2d_CMS_ContentInfo(cms, &der);
  std::string bytes(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
  OPENSSL_free(der);
  return bytes;
}

struct Forgery {
  std::vector<const Identity*> signers;
  const EVP_MD* digest = EVP_sha256();
  unsigned flags = kFlags;
  std::vector<const Identity*> extraCertificates;
};

// Makes signatures that makeSignature would not make.
std::string forge(const Forgery& forgery) {
  const auto stream = streamOf(kContent);
  const ContentInfo cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, forgery.flags));
  for (const auto* signer : forgery.signers) {
    EXPECT_NE(CMS_add1_signer(cms.get(), signer->certificate.get(), signer->key.get(),
                              forgery.digest, forgery.flags),
              nullptr);
  }
  for (const auto* extra : forgery.extraCertificates) {
    CMS_add1_cert(cms.get(), extra->certificate.get());
  }
  // Without a signer there is nothing left to compute, and the library refuses to.
  if (forgery.signers.empty()) return derOf(cms.get());
  EXPECT_EQ(CMS_final(cms.get(), stream.get(), nullptr, forgery.flags), 1);
  return derOf(cms.get());
}

class SignatureTest : public testing::Test {
 protected:
  std::string problemWith(std::string_view signature, std::string_view content = kContent) {
    return problemOf([&] { checkSignature(content, signature, trust_); });
  }
  std::string problemWithSignatureBy(const Identity& identity) {
    return problemWith(makeSignature(kContent, identity));
  }
  std::string problemWithSignerOf(const CertificateOrder& order) {
    return problemWithSignatureBy(makeIdentity(order, &test_.authority));
  }

  TestSigner test_;
  TrustStore trust_ = test_.trust();
  std::string good_ = makeSignature(kContent, test_.signer);
};

TEST_F(SignatureTest, OfATrustedSignerIsAccepted) {
  EXPECT_EQ(problemWith(good_), "");
}

TEST_F(SignatureTest, OfAnRSAKeyIsAccepted) {
  EXPECT_EQ(problemWithSignerOf({.rsaBits = 2048}), "");
}

TEST_F(SignatureTest, OverOtherBytesIsRefused) {
  EXPECT_THAT(problemWith(good_, "what is signeD"), HasSubstr("not a signature over this seal"));
  EXPECT_THAT(problemWith(good_, ""), HasSubstr("not a signature over this seal"));
}

TEST_F(SignatureTest, WithoutASignerIsRefused) {
  const auto none = forge({.signers = {}, .extraCertificates = {&test_.signer}});
  EXPECT_THAT(problemWith(none), HasSubstr("0 signers"));
}

TEST_F(SignatureTest, OfTwoSignersIsRefusedThoughBothAreTrusted) {
  const auto second = makeIdentity({.name = "Second"}, &test_.authority);
  EXPECT_THAT(problemWith(forge({.signers = {&test_.signer, &second}})), HasSubstr("2 signers"));
}

TEST_F(SignatureTest, WithADigestThatIsNotAcceptedIsRefused) {
  EXPECT_THAT(problemWith(forge({.signers = {&test_.signer}, .digest = EVP_sha1()})),
              HasSubstr("digest algorithm"));
  EXPECT_EQ(problemWith(forge({.signers = {&test_.signer}, .digest = EVP_sha512()})), "");
}

TEST_F(SignatureTest, WithAnUnknownDigestIsRefused) {
  // The object identifier of SHA-256, turned into one that nobody has given out.
  constexpr std::string_view kSHA256 = "\x60\x86\x48\x01\x65\x03\x04\x02\x01";
  auto unknown = good_;
  for (auto at = unknown.find(kSHA256); at != unknown.npos; at = unknown.find(kSHA256, at + 1)) {
    unknown[at + kSHA256.size() - 1] = 0x7f;
  }
  ASSERT_NE(unknown, good_);
  EXPECT_THAT(problemWith(unknown), HasSubstr("digest algorithm"));
}

TEST_F(SignatureTest, WithoutSignedAttributesIsRefused) {
  EXPECT_THAT(problemWith(forge({.signers = {&test_.signer}, .flags = kFlags | CMS_NOATTR})),
              HasSubstr("signed attributes"));
}

TEST_F(SignatureTest, WithContentInsideIsRefused) {
  EXPECT_THAT(problemWith(forge({.signers = {&test_.signer}, .flags = kFlags & ~CMS_DETACHED})),
              HasSubstr("content of its own"));
}

TEST_F(SignatureTest, WithoutTheSignersCertificateIsRefused) {
  EXPECT_THAT(problemWith(forge({.signers = {&test_.signer}, .flags = kFlags | CMS_NOCERTS})),
              HasSubstr("holds no certificate"));
  EXPECT_THAT(problemWith(forge({.signers = {&test_.signer},
                                 .flags = kFlags | CMS_NOCERTS,
                                 .extraCertificates = {&test_.authority}})),
              HasSubstr("lacks the signer's certificate"));
}

TEST_F(SignatureTest, WithTooManyCertificatesIsRefused) {
  std::vector<Identity> others;
  Forgery forgery{.signers = {&test_.signer}};
  for (int i = 0; i < kMaximumCertificates; ++i) others.push_back(makeIdentity({}));
  for (const auto& other : others) forgery.extraCertificates.push_back(&other);
  EXPECT_THAT(problemWith(forge(forgery)), HasSubstr("too many certificates"));
}

TEST_F(SignatureTest, DamagedAnywhereIsRefused) {
  EXPECT_THAT(problemWith(""), HasSubstr("not a CMS structure"));
  EXPECT_THAT(problemWith("nonsense"), HasSubstr("not a CMS structure"));
  EXPECT_THAT(problemWith(good_ + '\0'), HasSubstr("not a CMS structure"));
  for (std::size_t size = 0; size < good_.size(); ++size) {
    EXPECT_NE(problemWith(good_.substr(0, size)), "") << size;
  }
  ERR_clear_error();
}

TEST_F(SignatureTest, WithAnyBitOfTheSignatureValueTurnedIsRefused) {
  // The signature value is the last thing in the structure.
  for (std::size_t fromEnd = 1; fromEnd <= 60; ++fromEnd) {
    auto turned = good_;
    turned[turned.size() - fromEnd] ^= 1;
    EXPECT_NE(problemWith(turned), "") << fromEnd;
  }
}

TEST_F(SignatureTest, OfAnUnknownSignerIsRefused) {
  const auto stranger = makeIdentity({.name = "Stranger"});
  EXPECT_THAT(problemWithSignatureBy(stranger), HasSubstr("\"CN=Stranger\" is not accepted"));
  // An authority of the same name with another key makes no difference.
  const TestSigner other;
  EXPECT_THAT(problemWithSignatureBy(other.signer), HasSubstr("is not accepted"));
}

TEST_F(SignatureTest, OfAnExpiredSignerIsRefused) {
  EXPECT_THAT(problemWithSignerOf({.validFrom = -7200, .validUntil = -3600}),
              HasSubstr("certificate has expired"));
  EXPECT_THAT(problemWithSignerOf({.validFrom = 3600, .validUntil = 7200}),
              HasSubstr("certificate is not yet valid"));
}

TEST_F(SignatureTest, ExpiresWithItsSignerOrAnchor) {
  TestClock clock(Clock::now());
  EXPECT_EQ(problemWith(good_), "");
  clock.advance(std::chrono::hours(25));
  EXPECT_THAT(problemWith(good_), HasSubstr("certificate has expired"));
  clock.setDate(Clock::now().plusSeconds(-48 * 3600));
  EXPECT_THAT(problemWith(good_), HasSubstr("certificate is not yet valid"));
}

TEST_F(SignatureTest, OfASignerWithAnotherPurposeIsRefused) {
  EXPECT_THAT(problemWithSignerOf({.extendedKeyUsage = "emailProtection"}),
              HasSubstr("not for code signing"));
  EXPECT_THAT(problemWithSignerOf({.extendedKeyUsage = ""}), HasSubstr("not for code signing"));
  EXPECT_THAT(problemWithSignerOf({.extendedKeyUsage = "anyExtendedKeyUsage"}),
              HasSubstr("not for code signing"));
  EXPECT_THAT(problemWithSignerOf({.keyUsage = "critical,keyEncipherment"}),
              HasSubstr("not for digital signatures"));
  EXPECT_EQ(problemWithSignerOf({.keyUsage = ""}), "");
  EXPECT_EQ(problemWithSignerOf({.extendedKeyUsage = "codeSigning,emailProtection"}), "");
}

TEST_F(SignatureTest, WithWeakKeysOrDigestsIsRefused) {
  EXPECT_THAT(problemWithSignerOf({.rsaBits = 1024}), HasSubstr("too weak"));
  EXPECT_THAT(problemWithSignerOf({.digest = "SHA1"}), HasSubstr("too weak"));
}

TEST_F(SignatureTest, IsTracedThroughTheCertificatesThatItBrings) {
  const auto middle = makeIdentity(authorityOrder("Middle"), &test_.authority);
  auto signer = makeIdentity({.name = "Below"}, &middle);
  EXPECT_THAT(problemWithSignatureBy(signer), HasSubstr("unable to get local issuer"));
  signer.chain.push_back(copyOf(middle.certificate));
  EXPECT_EQ(problemWithSignatureBy(signer), "");
}

TEST_F(SignatureTest, IsNotTracedThroughACertificateThatMustNotVouch) {
  auto middleOrder = authorityOrder("Middle");
  middleOrder.extendedKeyUsage = "serverAuth";
  const auto middle = makeIdentity(middleOrder, &test_.authority);
  auto signer = makeIdentity({.name = "Below"}, &middle);
  signer.chain.push_back(copyOf(middle.certificate));
  EXPECT_THAT(problemWithSignatureBy(signer), HasSubstr("authority's certificate is not for code"));

  auto below = makeIdentity({.name = "Below a signer"}, &test_.signer);
  below.chain.push_back(copyOf(test_.signer.certificate));
  EXPECT_NE(problemWithSignatureBy(below), "");
}

TEST_F(SignatureTest, OfAChainThatIsTooLongIsRefused) {
  std::vector<Identity> chain;
  chain.push_back(makeIdentity(authorityOrder("0"), &test_.authority));
  for (int i = 1; i <= kMaximumChainDepth; ++i) {
    chain.push_back(makeIdentity(authorityOrder(std::to_string(i)), &chain.back()));
  }
  auto signer = makeIdentity({}, &chain.back());
  for (const auto& authority : chain) signer.chain.push_back(copyOf(authority.certificate));
  EXPECT_NE(problemWithSignatureBy(signer), "");
}

TEST_F(SignatureTest, IsAcceptedWhenTheSignersOwnCertificateIsTheAnchor) {
  trust_ = trustIn(test_.signer.certificate);
  EXPECT_EQ(problemWith(good_), "");
  const auto selfSigned = makeIdentity({.name = "Self"});
  trust_ = trustIn(selfSigned.certificate);
  EXPECT_EQ(problemWithSignatureBy(selfSigned), "");
}

TEST_F(SignatureTest, ProblemsAreOneLineWhateverTheSignerIsCalled) {
  const auto problem = problemWithSignatureBy(makeIdentity({.name = "Evil\n\x1b[2JName\xc2\x9b"}));
  EXPECT_THAT(problem, StartsWith("Contents/_CodeSignature/CodeSignature: signer \"CN=Evil"));
  for (const char c : problem) EXPECT_TRUE(c >= ' ' && c <= '~') << problem;
}

TEST_F(SignatureTest, DescribesItsSigner) {
  const auto facts = describeSignature(good_);
  EXPECT_EQ(facts.subject, "CN=Signer");
  EXPECT_EQ(facts.issuer, "CN=Authority");
  EXPECT_EQ(facts.digestAlgorithm, "sha256");
  EXPECT_EQ(facts.certificateDigest.size(), 64u);
  EXPECT_THAT(facts.signingTime, testing::MatchesRegex("....-..-.. ..:..:..Z"));
  EXPECT_NE(problemOf([] { describeSignature("nonsense"); }), "");
}

}  // namespace
}  // namespace hoist::codesign
