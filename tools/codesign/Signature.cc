// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// CMS allows far more than a seal needs, and what is allowed and not needed is where such checks
// have gone wrong elsewhere: no signer at all counted as success, a second signer that nobody asked
// about, content inside beside the content outside, attributes whose encoding passes for content.
// So the one shape that makeSignature makes is asked for, and the signer is traced to an anchor
// before anything is computed with its key.
#include "codesign/Signature.h"

#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>

#include "codesign/Certificates.h"
#include "codesign/Limits.h"
#include "codesign/Problem.h"
#include "codesign/Seal.h"
#include "platform/Digest.h"

namespace hoist::codesign {
namespace {

constexpr std::array kAcceptedDigests = {NID_sha256, NID_sha384, NID_sha512};

struct CertificateStackFree {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_pop_free(stack, X509_free); }
};
using CertificateStack = std::unique_ptr<STACK_OF(X509), CertificateStackFree>;

[[noreturn]] void refuse(std::string_view reason) {
  throw Problem(kSignaturePath, reason);
}

ContentInfo parse(std::string_view der) {
  auto position = reinterpret_cast<const unsigned char*>(der.data());
  const auto end = position + der.size();
  ContentInfo cms(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(der.size())));
  ERR_clear_error();
  if (!cms || position != end) refuse("is not a CMS structure");
  return cms;
}

void requireDetachedData(CMS_ContentInfo* cms) {
  if (OBJ_obj2nid(CMS_get0_type(cms)) != NID_pkcs7_signed) refuse("is not a signature");
  if (OBJ_obj2nid(CMS_get0_eContentType(cms)) != NID_pkcs7_data) {
    refuse("is over something else than plain data");
  }
  if (CMS_is_detached(cms) != 1) refuse("holds content of its own");
}

CMS_SignerInfo* onlySigner(CMS_ContentInfo* cms) {
  auto* signers = CMS_get0_SignerInfos(cms);
  const int count = std::max(0, sk_CMS_SignerInfo_num(signers));
  if (count != 1) refuse(fmt::format("has {} signers instead of one", count));
  return sk_CMS_SignerInfo_value(signers, 0);
}

CertificateStack certificatesIn(CMS_ContentInfo* cms) {
  CertificateStack certificates(CMS_get1_certs(cms));
  const int count = std::max(0, sk_X509_num(certificates.get()));
  if (count == 0) refuse("holds no certificate");
  if (count > kMaximumCertificates) refuse("holds too many certificates");
  return certificates;
}

// Stays the structure's.
X509* signerCertificate(CMS_ContentInfo* cms, CMS_SignerInfo* signer) {
  CMS_set1_signers_certs(cms, nullptr, 0);
  ERR_clear_error();
  X509* certificate = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, nullptr, nullptr);
  if (!certificate) refuse("lacks the signer's certificate");
  return certificate;
}

int digestOf(CMS_SignerInfo* signer) {
  X509_ALGOR* algorithm = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &algorithm, nullptr);
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  return OBJ_obj2nid(object);
}

void requireAcceptedDigest(CMS_SignerInfo* signer) {
  if (std::ranges::find(kAcceptedDigests, digestOf(signer)) == kAcceptedDigests.end()) {
    refuse("uses a digest algorithm that is not accepted");
  }
}

// Without signed attributes the signature would be over the content itself, and somebody's signed
// attributes could be passed off as content.
void requireSignedAttributes(CMS_SignerInfo* signer) {
  const auto* contentType = static_cast<const ASN1_OBJECT*>(
      CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(NID_pkcs9_contentType), -3, V_ASN1_OBJECT));
  if (!contentType || OBJ_obj2nid(contentType) != NID_pkcs7_data) {
    refuse("lacks the signed attributes");
  }
}

void requireSignatureOver(CMS_ContentInfo* cms, std::string_view content) {
  constexpr unsigned kFlags = CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
  const auto stream = streamOf(content);
  if (CMS_verify(cms, nullptr, nullptr, stream.get(), nullptr, kFlags) == 1) return;
  ERR_clear_error();
  refuse("is not a signature over this seal");
}

std::string textOf(const ASN1_TIME* time) {
  const Stream stream(BIO_new(BIO_s_mem()));
  ASN1_TIME_print_ex(stream.get(), time, ASN1_DTFLGS_ISO8601);
  char* text = nullptr;
  const long size = BIO_get_mem_data(stream.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

std::string signingTimeOf(CMS_SignerInfo* signer) {
  for (const int type : {V_ASN1_UTCTIME, V_ASN1_GENERALIZEDTIME}) {
    const auto* time = static_cast<const ASN1_TIME*>(
        CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(NID_pkcs9_signingTime), -3, type));
    if (time) return textOf(time);
  }
  ERR_clear_error();
  return {};
}

std::string serialNumberOf(const X509* certificate) {
  const auto* serial = X509_get0_serialNumber(certificate);
  const auto* bytes = ASN1_STRING_get0_data(serial);
  return platform::hexadecimal({bytes, static_cast<std::size_t>(ASN1_STRING_length(serial))});
}

std::string digestOfCertificate(const X509* certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned size = 0;
  X509_digest(certificate, EVP_sha256(), digest.data(), &size);
  return platform::hexadecimal({digest.data(), size});
}

}  // namespace

std::string makeSignature(std::string_view content, const Identity& identity) {
  constexpr unsigned kFlags = CMS_BINARY | CMS_DETACHED | CMS_NOSMIMECAP | CMS_PARTIAL;
  const auto stream = streamOf(content);
  const ContentInfo cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags));
  bool made = cms && CMS_add1_signer(cms.get(), identity.certificate.get(), identity.key.get(),
                                     EVP_sha256(), kFlags);
  for (const auto& certificate : identity.chain) {
    made = made && CMS_add1_cert(cms.get(), certificate.get()) == 1;
  }
  made = made && CMS_final(cms.get(), stream.get(), nullptr, kFlags) == 1;
  unsigned char* der = nullptr;
  const int size = made ? i2d_CMS_ContentInfo(cms.get(), &der) : -1;
  if (size < 0) refuse("cannot be made: " + libraryComplaint());
  std::string bytes(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size));
  OPENSSL_free(der);
  return bytes;
}

void checkSignature(std::string_view content, std::string_view signature, const TrustStore& trust) {
  const auto cms = parse(signature);
  requireDetachedData(cms.get());
  CMS_SignerInfo* signer = onlySigner(cms.get());
  requireAcceptedDigest(signer);
  requireSignedAttributes(signer);
  const auto certificates = certificatesIn(cms.get());
  trust.requireTrusted(signerCertificate(cms.get(), signer), certificates.get());
  requireSignatureOver(cms.get(), content);
}

SignatureFacts describeSignature(std::string_view signature) {
  const auto cms = parse(signature);
  requireDetachedData(cms.get());
  CMS_SignerInfo* signer = onlySigner(cms.get());
  certificatesIn(cms.get());
  const X509* certificate = signerCertificate(cms.get(), signer);
  const char* digest = OBJ_nid2ln(digestOf(signer));
  return {.digestAlgorithm = digest ? digest : "unknown",
          .signingTime = signingTimeOf(signer),
          .subject = subjectOf(certificate),
          .issuer = nameText(X509_get_issuer_name(certificate)),
          .serialNumber = serialNumberOf(certificate),
          .validFrom = textOf(X509_get0_notBefore(certificate)),
          .validUntil = textOf(X509_get0_notAfter(certificate)),
          .certificateDigest = digestOfCertificate(certificate)};
}

}  // namespace hoist::codesign
