// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "codesign/TrustStore.h"

namespace hoist::codesign {

// Who signs.
struct Identity {
  PrivateKey key;
  Certificate certificate;
  // Authorities between the certificate and the anchor, put into the signature.
  Certificates chain;

  // Reads PEM files; an encrypted key's pass phrase is asked for on the terminal. Throws Problem
  // for what cannot be read, a key that is not the certificate's, and a certificate that must not
  // sign code or is not valid now.
  static Identity ofFiles(const std::string& keyFile, const std::string& certificateFile,
                          const std::string& chainFile);
};

// A detached CMS signature (DER) with SHA-256 and signed attributes. Throws Problem.
std::string makeSignature(std::string_view content, const Identity& identity);

// Throws Problem unless the bytes, which may be hostile, are a detached CMS signature of exactly
// one trusted signer over this content.
void checkSignature(std::string_view content, std::string_view signature, const TrustStore& trust);

// What a signature says of itself; nothing of it is checked.
struct SignatureFacts {
  std::string digestAlgorithm;
  std::string signingTime;  // empty when it names none
  std::string subject;
  std::string issuer;
  std::string serialNumber;  // hexadecimal
  std::string validFrom;
  std::string validUntil;
  std::string certificateDigest;  // SHA-256 of the signer's certificate, hexadecimal
};

// Throws Problem for bytes that are no detached CMS signature of exactly one signer.
SignatureFacts describeSignature(std::string_view signature);

}  // namespace hoist::codesign
