// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Prints what a started program sees of itself, a line a fact, so that a test can compare two ways
// of starting it. Its first argument may name one thing to do instead: "exit N", "cat", "sleep".

#include <dirent.h>
#include <grp.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

void printStatusLines() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    for (const char* name :
         {"Uid:", "Gid:", "Groups:", "Cap", "SigBlk:", "SigIgn:", "SigCgt:", "NoNewPrivs:"}) {
      if (line.rfind(name, 0) == 0) std::printf("%s\n", line.c_str());
    }
  }
}

void printDescriptors() {
  DIR* folder = ::opendir("/proc/self/fd");
  std::vector<int> numbers;
  while (folder != nullptr) {
    dirent* entry = ::readdir(folder);
    if (entry == nullptr) break;
    int number = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && number != ::dirfd(folder)) numbers.push_back(number);
  }
  std::sort(numbers.begin(), numbers.end());
  std::printf("descriptors:");
  for (int number : numbers) std::printf(" %d", number);
  std::printf("\n");
}

void printState(int count, char** arguments) {
  for (int i = 0; i < count; ++i) std::printf("argument %d: %s\n", i, arguments[i]);
  for (char** variable = environ; *variable != nullptr; ++variable)
    std::printf("variable: %s\n", *variable);
  printStatusLines();
  printDescriptors();
  std::printf("secure: %lu\n", ::getauxval(AT_SECURE));
  std::printf("dumpable: %d\n", ::prctl(PR_GET_DUMPABLE));
  char folder[4096];
  std::printf("directory: %s\n", ::getcwd(folder, sizeof folder));
  mode_t mask = ::umask(0);
  std::printf("umask: %03o\n", mask);
}

}  // namespace

int main(int count, char** arguments) {
  if (count > 2 && std::strcmp(arguments[1], "exit") == 0) return std::atoi(arguments[2]);
  if (count > 1 && std::strcmp(arguments[1], "sleep") == 0) return ::pause();
  if (count > 1 && std::strcmp(arguments[1], "cat") == 0) {
    for (int c; (c = std::getchar()) != EOF;) std::putchar(c);
    return 0;
  }
  printState(count, arguments);
}
