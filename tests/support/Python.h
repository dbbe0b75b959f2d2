// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

#include "support/TemporaryFolder.h"

namespace hoist {

// Runs a Python script as an independent witness: the input is the bytes `data`, what it gives to
// `out` (bytes or text) is answered. The script's imports are plistlib, datetime and math. Throws
// when the script fails.
inline std::string runPython(const std::string& script, std::string_view input = {}) {
  TemporaryFolder folder;
  std::string source =
      "import sys, plistlib, datetime, math\nfrom plistlib import UID\n"
      "data = open(sys.argv[1], 'rb').read()\n"
      "def out(x): sys.stdout.buffer.write(x if isinstance(x, bytes) else "
      "str(x).encode('utf-8', 'surrogatepass'))\n" +
      script;
  std::string command = "/usr/bin/python3 " + folder.write("script.py", source) + " " +
                        folder.write("input", input) + " > " + (folder / "output");
  if (std::system(command.c_str()) != 0) throw std::runtime_error("the script failed:\n" + script);
  std::ifstream output(folder / "output", std::ios::binary);
  return {std::istreambuf_iterator<char>(output), {}};
}

}  // namespace hoist
