// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What must never run: it leaves a file in the folder "marks" two levels above its bundle's folder.

#include <fcntl.h>
#include <unistd.h>

#include <string>

int main(int, char** arguments) {
  std::string path = arguments[0];
  // BUNDLES/NAME/KelvoHelper.app/Contents/Linux/KelvoHelper
  for (int level = 0; level < 5; ++level) path.erase(path.rfind('/'));
  path += "/marks/" + std::to_string(::getpid());
  ::close(::open(path.c_str(), O_CREAT | O_WRONLY, 0666));
}
