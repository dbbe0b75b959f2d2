// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// csrutil: says whether the system protects itself.
#include <fmt/format.h>

#include <cstdio>
#include <string_view>

#include "csrutil/SystemIntegrity.h"

int main(int count, char** arguments) {
  if (count != 2 || std::string_view(arguments[1]) != "status") {
    std::fputs("usage: csrutil status\n", stderr);
    return 2;
  }
  fmt::print("{}\n", hoist::csrutil::statusText(hoist::csrutil::isSystemIntegrityProtected()));
  // An answer that nobody could read is none.
  return std::fflush(stdout) == 0 ? 0 : 1;
}
