// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/TrustStore.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/x509_vfy.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <vector>

#include "codesign/Certificates.h"
#include "codesign/Limits.h"
#include "codesign/PathText.h"
#include "codesign/Problem.h"
#include "codesign/Seal.h"
#include "platform/Clock.h"
#include "platform/FileReading.h"
#include "platform/SystemCall.h"

namespace hoist::codesign {
namespace {

namespace fs = std::filesystem;

using VerificationContext = std::unique_ptr<X509_STORE_CTX, FreeWith<X509_STORE_CTX_free>>;

// Of the library's scale: keys of at least 112 bits of strength, which rules out RSA keys below
// 2048 bits and signatures over SHA-1.
constexpr int kSecurityLevel = 2;

[[noreturn]] void refuseFolder(const std::string& path, std::string_view reason) {
  throw Problem(fmt::format("trust folder: {}: {}", textOfPath(path), reason));
}

// Others must not be able to add to what is trusted.
void requireSafe(int fd, const std::string& path) {
  struct stat status;
  systemCall("fstat", [&] { return fstat(fd, &status); });
  if (status.st_uid != 0 && status.st_uid != geteuid()) {
    refuseFolder(path, "belongs to somebody else");
  }
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) refuseFolder(path, "can be changed by others");
}

std::vector<std::string> anchorFiles(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".pem") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// A link is followed: whoever may make one in the folder may put a certificate there as well.
Certificates readAnchors(const std::string& path) {
  const FileDescriptor file(
      systemCall("open", [&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
  requireSafe(file.get(), path);
  const auto bytes = platform::readWhole(file.get(), kMaximumAnchorFileBytes);
  auto certificates =
      certificatesOfPEM({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  if (!certificates) refuseFolder(path, "holds no certificate or a damaged one");
  return *std::move(certificates);
}

Certificates readFolder(const std::string& path) {
  const FileDescriptor folder(
      systemCall("open", [&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  requireSafe(folder.get(), path);
  Certificates anchors;
  for (const auto& file : anchorFiles(path)) {
    std::ranges::move(readAnchors(file), std::back_inserter(anchors));
  }
  if (anchors.empty()) refuseFolder(path, "holds no trust anchor");
  return anchors;
}

void setTerms(X509_STORE_CTX* context) {
  X509_VERIFY_PARAM* terms = X509_STORE_CTX_get0_param(context);
  X509_VERIFY_PARAM_set_flags(terms, X509_V_FLAG_PARTIAL_CHAIN);
  X509_VERIFY_PARAM_set_depth(terms, kMaximumChainDepth);
  X509_VERIFY_PARAM_set_auth_level(terms, kSecurityLevel);
  const auto now = static_cast<time_t>(std::floor(Clock::now().secondsSince1970()));
  X509_VERIFY_PARAM_set_time(terms, now);
}

[[noreturn]] void refuseSigner(X509* signer, std::string_view reason) {
  throw Problem(kSignaturePath,
                fmt::format("signer \"{}\" is not accepted: {}", subjectOf(signer), reason));
}

}  // namespace

TrustStore TrustStore::ofFolder(const std::string& path) {
  try {
    return of(readFolder(path));
  } catch (const SystemCallError& error) {
    refuseFolder(path, errorText(error.number()));
  } catch (const fs::filesystem_error& error) {
    refuseFolder(path, error.code().message());
  }
}

TrustStore TrustStore::of(const Certificates& anchors) {
  TrustStore trust;
  trust.store_.reset(X509_STORE_new());
  for (const auto& anchor : anchors) {
    if (X509_STORE_add_cert(trust.store_.get(), anchor.get()) != 1) {
      throw Problem("trust folder: " + libraryComplaint());
    }
  }
  return trust;
}

// The library of this version knows no purpose for code signing, so the usages along the chain are
// asked for here; it checks all the rest.
void TrustStore::requireTrusted(X509* signer, STACK_OF(X509) * others) const {
  const VerificationContext context(X509_STORE_CTX_new());
  if (X509_STORE_CTX_init(context.get(), store_.get(), signer, others) != 1) {
    refuseSigner(signer, libraryComplaint());
  }
  setTerms(context.get());
  if (X509_verify_cert(context.get()) != 1) {
    const int reason = X509_STORE_CTX_get_error(context.get());
    refuseSigner(signer, X509_verify_cert_error_string(reason));
  }
  if (const auto objection = objectionToSigningCode(signer)) refuseSigner(signer, *objection);
  const auto* chain = X509_STORE_CTX_get0_chain(context.get());
  for (int i = 1; i < sk_X509_num(chain); ++i) {
    const auto objection = objectionToVouchingForCode(sk_X509_value(chain, i));
    if (objection) refuseSigner(signer, *objection);
  }
}

}  // namespace hoist::codesign
