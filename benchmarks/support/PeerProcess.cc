// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "support/PeerProcess.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace hoist::bench {
namespace {

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

}  // namespace

PeerProcess::PeerProcess(const std::vector<std::string>& command) {
  PipeEnds output = makePipe();
  auto arguments = pointers(command);
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(output.writing.get(), STDOUT_FILENO);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  output.writing.reset();
  char byte = 0;
  if (::read(output.reading.get(), &byte, 1) != 1) {
    throw std::runtime_error(command[0] + " did not get ready");
  }
  output_ = std::move(output.reading);
}

PeerProcess::~PeerProcess() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void PeerProcess::sayReady() {
  if (::write(STDOUT_FILENO, "\n", 1) != 1) throw std::runtime_error("nobody waits for this peer");
}

std::string PeerProcess::thisProgram() {
  return std::filesystem::read_symlink("/proc/self/exe").string();
}

}  // namespace hoist::bench
