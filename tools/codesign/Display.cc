// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <iterator>

#include "codesign/Codesign.h"
#include "codesign/Limits.h"
#include "codesign/PathText.h"
#include "codesign/SealingVisitor.h"
#include "platform/InfoPlist.h"

namespace hoist::codesign {
namespace {

std::uint64_t contentBytes(const Seal& seal) {
  std::uint64_t total = 0;
  for (const auto& [path, file] : seal.files) total += file.size;
  return total;
}

}  // namespace

std::string describeBundle(const std::string& path) {
  const auto bundle = openBundle(path);
  const auto seal = sealOfText(readBundleFile(bundle.get(), kSealPath, kMaximumSealBytes));
  const auto facts =
      describeSignature(readBundleFile(bundle.get(), kSignaturePath, kMaximumSignatureBytes));
  const auto info =
      readBundleFile(bundle.get(), platform::kInfoPlistPath, platform::kMaximumInfoPlistBytes);
  const std::vector<std::uint8_t> infoPlist(info.begin(), info.end());
  const auto& executable = mainExecutable(seal, infoPlist);
  const auto identifier = platform::infoPlistText(infoPlist, "CFBundleIdentifier");

  std::string text;
  const auto line = [&](std::string_view name, std::string_view value) {
    fmt::format_to(std::back_inserter(text), "{:<22}{}\n", fmt::format("{}:", name), value);
  };
  line("Bundle", textOfPath(path));
  line("Identifier", identifier ? textOfPath(*identifier) : "none");
  line("Executable", textOfPath(executable));
  line("Executable SHA-256", platform::hexadecimal(seal.files.at(executable).digest));
  line("Sealed", fmt::format("files {} ({} bytes), links {}, folders {}", seal.files.size(),
                             contentBytes(seal), seal.links.size(), seal.folders.size()));
  line("Signer", facts.subject);
  line("Issuer", facts.issuer);
  line("Serial number", facts.serialNumber);
  line("Certificate SHA-256", facts.certificateDigest);
  line("Valid", fmt::format("{} to {}", facts.validFrom, facts.validUntil));
  line("Signed on", facts.signingTime.empty() ? "not said" : facts.signingTime);
  line("Signature digest", facts.digestAlgorithm);
  line("Verified", "no (--verify does that)");
  return text;
}

}  // namespace hoist::codesign
