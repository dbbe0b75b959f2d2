// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "codesign/OpenSSL.h"

namespace hoist::codesign {

// The certificates that signers are traced back to.
class TrustStore {
 public:
  // Reads every *.pem of the folder. The folder and the files must belong to root or to the
  // effective user and be writable for nobody else. Throws Problem for a folder that is not so,
  // that cannot be read, holds no certificate, or holds a file that is damaged: an anchor that
  // silently does not count would be a riddle.
  static TrustStore ofFolder(const std::string& path);

  static TrustStore of(const Certificates& anchors);

  // Throws Problem unless the signer's certificate may sign code and a chain of valid certificates,
  // taken from the given ones, leads from it to an anchor, which may be any certificate of the
  // chain. Asks the clock for the time.
  void requireTrusted(X509* signer, STACK_OF(X509) * others) const;

 private:
  CertificateStore store_;
};

}  // namespace hoist::codesign
