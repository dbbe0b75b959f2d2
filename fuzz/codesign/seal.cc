// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as a seal: refused, or read, written anew and read to the same again.
#include "codesign/Seal.h"

#include <cstdlib>

#include "codesign/Problem.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace hoist::codesign;
  try {
    const auto seal = sealOfText({reinterpret_cast<const char*>(data), size});
    if (sealOfText(textOfSeal(seal)) != seal) std::abort();
  } catch (const Problem&) {
  }
  return 0;
}
