// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "codesign/Signature.h"

namespace hoist::codesign {

// A certificate to make, and the key for it. What is set by default may sign code now.
struct CertificateOrder {
  std::string name = "Signer";
  // Seconds from now.
  long validFrom = -3600;
  long validUntil = 86'400;
  bool authority = false;
  // In the notation of OpenSSL's configuration; empty for no such extension.
  std::string keyUsage = "critical,digitalSignature";
  std::string extendedKeyUsage = "codeSigning";
  // 0 for an elliptic-curve key, else bits of an RSA key.
  unsigned rsaBits = 0;
  const char* digest = "SHA256";
};

CertificateOrder authorityOrder(std::string name = "Authority");

// A key with its certificate, signed by the issuer or, without one, by itself.
Identity makeIdentity(const CertificateOrder& order, const Identity* issuer = nullptr);

// An anchor and a signer below it.
struct TestSigner {
  explicit TestSigner(const std::string& authorityName = "Authority")
      : authority(makeIdentity(authorityOrder(authorityName))) {}

  Identity authority;
  Identity signer = makeIdentity({}, &authority);

  TrustStore trust() const;
};

Certificate copyOf(const Certificate& certificate);
TrustStore trustIn(const Certificate& anchor);

std::string pemOf(const Certificate& certificate);
std::string pemOf(const PrivateKey& key);

}  // namespace hoist::codesign
