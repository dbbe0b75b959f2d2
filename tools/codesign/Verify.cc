// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The signature comes first: until it has proved good, the seal is bytes from a stranger and is not
// even parsed. Then the bundle is compared with the seal. Info.plist is looked into last, from the
// bytes that have just been found sealed.
#include "codesign/Codesign.h"
#include "codesign/Limits.h"
#include "codesign/SealingVisitor.h"

namespace hoist::codesign {

std::string verifyBundle(const std::string& path, const TrustStore& trust) {
  const auto bundle = openBundle(path);
  const auto sealText = readBundleFile(bundle.get(), kSealPath, kMaximumSealBytes);
  const auto signature = readBundleFile(bundle.get(), kSignaturePath, kMaximumSignatureBytes);
  checkSignature(sealText, signature, trust);
  const auto seal = sealOfText(sealText);
  SealChecker checker(seal);
  walkBundle(bundle.get(), checker);
  checker.requireNothingMissing();
  return platform::hexadecimal(seal.files.at(mainExecutable(seal, checker.infoPlist())).digest);
}

}  // namespace hoist::codesign
