// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as an Info.plist: no name, or the plain name of a file.
#include <cstdlib>

#include "platform/InfoPlist.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto name = hoist::platform::executableNameOfInfoPlist({data, size});
  if (name && (name->empty() || name->find('/') != name->npos || *name == "..")) std::abort();
  return 0;
}
