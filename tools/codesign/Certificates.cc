// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Certificates.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace hoist::codesign {
namespace {

bool hasExtendedKeyUsage(X509* certificate) {
  return (X509_get_extension_flags(certificate) & EXFLAG_XKUSAGE) != 0;
}

bool isForCodeSigning(X509* certificate) {
  return (X509_get_extended_key_usage(certificate) & XKU_CODE_SIGN) != 0;
}

// Answers for encrypted PEM sections: none of ours is, and nobody is to be asked.
int noPassphrase(char*, int, int, void*) {
  return -1;
}

}  // namespace

std::optional<Certificates> certificatesOfPEM(std::string_view pem) {
  const auto stream = streamOf(pem);
  Certificates certificates;
  while (X509* certificate = PEM_read_bio_X509(stream.get(), nullptr, noPassphrase, nullptr)) {
    certificates.emplace_back(certificate);
  }
  // The text must have ended, not broken off.
  const bool atEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  ERR_clear_error();
  if (!atEnd || certificates.empty()) return {};
  return certificates;
}

std::string nameText(const X509_NAME* name) {
  const Stream stream(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(stream.get(), name, 0, XN_FLAG_RFC2253);
  char* text = nullptr;
  const long size = BIO_get_mem_data(stream.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

std::string subjectOf(const X509* certificate) {
  return nameText(X509_get_subject_name(certificate));
}

std::optional<std::string> objectionToSigningCode(X509* certificate) {
  if (!hasExtendedKeyUsage(certificate) || !isForCodeSigning(certificate)) {
    return "the certificate is not for code signing";
  }
  // Without the extension every usage is allowed, and the answer has all bits set.
  if ((X509_get_key_usage(certificate) & KU_DIGITAL_SIGNATURE) == 0) {
    return "the certificate is not for digital signatures";
  }
  return {};
}

std::optional<std::string> objectionToVouchingForCode(X509* certificate) {
  if (hasExtendedKeyUsage(certificate) && !isForCodeSigning(certificate)) {
    return "an authority's certificate is not for code signing";
  }
  return {};
}

std::string libraryComplaint() {
  const auto code = ERR_peek_last_error();
  ERR_clear_error();
  const char* reason = ERR_reason_error_string(code);
  return reason ? reason : "unknown reason";
}

}  // namespace hoist::codesign
