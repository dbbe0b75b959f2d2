// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a started program sees of itself, a line a fact, so that a test can compare two ways of
// starting it.

#include <dirent.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
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

namespace probe {

inline void printStatusLines(std::FILE* out) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    for (const char* name :
         {"Uid:", "Gid:", "Groups:", "Cap", "SigBlk:", "SigIgn:", "SigCgt:", "NoNewPrivs:"}) {
      if (line.rfind(name, 0) == 0) std::fprintf(out, "%s\n", line.c_str());
    }
  }
}

inline void printDescriptors(std::FILE* out) {
  DIR* folder = ::opendir("/proc/self/fd");
  std::vector<int> numbers;
  while (folder != nullptr) {
    dirent* entry = ::readdir(folder);
    if (entry == nullptr) break;
    int number = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && number != ::dirfd(folder)) numbers.push_back(number);
  }
  std::sort(numbers.begin(), numbers.end());
  std::fprintf(out, "descriptors:");
  for (int number : numbers) std::fprintf(out, " %d", number);
  std::fprintf(out, "\n");
}

inline void printState(std::FILE* out, int count, char** arguments) {
  for (int i = 0; i < count; ++i) std::fprintf(out, "argument %d: %s\n", i, arguments[i]);
  for (char** variable = environ; *variable != nullptr; ++variable)
    std::fprintf(out, "variable: %s\n", *variable);
  printStatusLines(out);
  printDescriptors(out);
  std::fprintf(out, "secure: %lu\n", ::getauxval(AT_SECURE));
  std::fprintf(out, "dumpable: %d\n", ::prctl(PR_GET_DUMPABLE));
  char folder[4096];
  std::fprintf(out, "directory: %s\n", ::getcwd(folder, sizeof folder));
  mode_t mask = ::umask(0);
  std::fprintf(out, "umask: %03o\n", mask);
  rlimit limit;
  ::getrlimit(RLIMIT_NOFILE, &limit);
  std::fprintf(out, "descriptor limit: %lu %lu\n", limit.rlim_cur, limit.rlim_max);
}

}  // namespace probe
