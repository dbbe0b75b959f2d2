// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// What a sampled program can put into the kernel's texts about it and into its symbols.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "sample/MemoryMap.h"
#include "sample/PrintableText.h"
#include "sample/ProcessStatus.h"

using namespace hoist::sample;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (auto status = parseProcessStatus(text)) require(status->name.size() < size);
  const auto mappings = parseMemoryMap(text);
  for (const ImageRange& image : imageRanges(mappings)) require(image.start < image.end);
  for (char c : printableText(text)) require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
  for (char c : functionName(text.c_str())) require(static_cast<unsigned char>(c) >= 0x20);
  require(functionName(("_Z" + text).c_str()).size() <= 1024 + 3);
  return 0;
}
