// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as a sequence of values. Each one that is read is written as it was read.
#include <cstdlib>
#include <span>

#include "platform/SequentialCoder.h"
#include "values/Error.h"

using namespace hoist;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Error::registerClass();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  SequentialDecoder decoder{Data(std::span(bytes, size))};
  try {
    while (!decoder.atEnd()) {
      auto value = decoder.decodeObject({"NSObject"});
      SequentialEncoder encoder;
      encoder.encodeObject(value);
      auto again = SequentialDecoder(encoder.data()).decodeObject({"NSObject"});
      if (describe(again) != describe(value)) std::abort();
    }
  } catch (const DecodeError&) {
  }
  return 0;
}
