// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/testing/Command.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/SystemCall.h"

namespace hoist::xpc {

Command::Command(std::vector<std::string> arguments, FileDescriptor given) {
  PipeEnds input;
  if (given) {
    input.reading = std::move(given);
  } else {
    input = makePipe();
  }
  auto output = makePipe();
  std::vector<char*> pointers;
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input.reading.get(), STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output.writing.get(), STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output.writing.get(), STDERR_FILENO);
  int failure = ::posix_spawnp(&process_, pointers[0], &actions, nullptr, pointers.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw SystemCallError(failure, "posix_spawnp", arguments[0]);
  input_ = std::move(input.writing);
  output_ = std::move(output.reading);
}

Command::~Command() {
  if (process_ < 0) return;
  kill(SIGKILL);
  wait();
}

std::string Command::readLine() {
  std::string line;
  char byte;
  while (::read(output_.get(), &byte, 1) == 1 && byte != '\n') line += byte;
  return line;
}

void Command::kill(int signal) {
  ::kill(process_, signal);
}

std::string Command::readToEnd() {
  std::string text;
  char buffer[4096];
  ssize_t got;
  while ((got = ::read(output_.get(), buffer, sizeof buffer)) > 0) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  return text;
}

int Command::wait() {
  int status = 0;
  retryInterrupted([&] { return ::waitpid(process_, &status, 0); });
  process_ = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

CommandResult runCommand(std::vector<std::string> arguments) {
  // No client of a test waits for long.
  arguments.insert(arguments.begin(), {"timeout", "60"});
  Command command(std::move(arguments));
  command.closeInput();
  auto output = command.readToEnd();
  return {command.wait(), output};
}

}  // namespace hoist::xpc
