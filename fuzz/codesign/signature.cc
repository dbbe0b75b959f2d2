// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as a signature: refused by a trust store whose anchor signed none of them; described or
// refused, in printable text.
#include "codesign/Signature.h"

#include <cstdlib>

#include "codesign/Problem.h"

namespace {

using namespace hoist::codesign;

TrustStore trustOfNobody() {
  return TrustStore::of({});
}

bool isPrintable(std::string_view text) {
  for (const char c : text) {
    if (c < ' ' || c > '~') return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto& trust = *new TrustStore(trustOfNobody());
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    checkSignature("content", bytes, trust);
    std::abort();  // accepted
  } catch (const Problem& problem) {
    if (!isPrintable(problem.what())) std::abort();
  }
  try {
    const auto facts = describeSignature(bytes);
    if (!isPrintable(facts.subject + facts.issuer + facts.signingTime)) std::abort();
  } catch (const Problem&) {
  }
  return 0;
}
