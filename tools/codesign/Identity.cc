// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <cmath>

#include "codesign/Certificates.h"
#include "codesign/Limits.h"
#include "codesign/Problem.h"
#include "codesign/Signature.h"
#include "platform/Clock.h"
#include "platform/FileReading.h"
#include "platform/SystemCall.h"

namespace hoist::codesign {
namespace {

[[noreturn]] void refuseFile(const std::string& path, std::string_view reason) {
  throw Problem(path, reason);
}

// The signer's own files: links and pipes are welcome.
std::string readFile(const std::string& path) {
  try {
    const FileDescriptor file(
        systemCall("open", [&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    const auto bytes = platform::readWhole(file.get(), kMaximumAnchorFileBytes);
    return {bytes.begin(), bytes.end()};
  } catch (const SystemCallError& error) {
    refuseFile(path, errorText(error.number()));
  }
}

Certificates readCertificates(const std::string& path) {
  auto certificates = certificatesOfPEM(readFile(path));
  if (!certificates) refuseFile(path, "holds no certificate or a damaged one");
  return *std::move(certificates);
}

PrivateKey readKey(const std::string& path) {
  auto pem = readFile(path);
  PrivateKey key(PEM_read_bio_PrivateKey(streamOf(pem).get(), nullptr, nullptr, nullptr));
  OPENSSL_cleanse(pem.data(), pem.size());
  if (!key) refuseFile(path, "holds no private key that can be read: " + libraryComplaint());
  return key;
}

}  // namespace

Identity Identity::ofFiles(const std::string& keyFile, const std::string& certificateFile,
                           const std::string& chainFile) {
  Identity identity;
  identity.key = readKey(keyFile);
  identity.certificate = std::move(readCertificates(certificateFile).front());
  if (!chainFile.empty()) identity.chain = readCertificates(chainFile);
  X509* certificate = identity.certificate.get();
  if (X509_check_private_key(certificate, identity.key.get()) != 1) {
    ERR_clear_error();
    refuseFile(certificateFile, "belongs to another key");
  }
  if (const auto objection = objectionToSigningCode(certificate)) {
    refuseFile(certificateFile, *objection);
  }
  auto now = static_cast<time_t>(std::floor(Clock::now().secondsSince1970()));
  if (X509_cmp_time(X509_get0_notBefore(certificate), &now) > 0 ||
      X509_cmp_time(X509_get0_notAfter(certificate), &now) < 0) {
    refuseFile(certificateFile, "the certificate has expired or is not valid yet");
  }
  return identity;
}

}  // namespace hoist::codesign
