// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "Programs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace hoist::sample {

TestFolder::TestFolder() {
  std::string pattern = testing::TempDir() + "sample.XXXXXX";
  path_ = ::mkdtemp(pattern.data());
  ::chmod(path_.c_str(), 0755);
}

TestFolder::~TestFolder() {
  std::filesystem::remove_all(path_);
}

std::string TestFolder::contents(const std::string& name) const {
  std::ifstream file(path(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void TestFolder::write(const std::string& name, const std::string& contents) const {
  std::ofstream(path(name), std::ios::binary) << contents;
}

Program::Program(const std::vector<std::string>& command, const std::function<void()>& prepare) {
  PipeEnds input = makePipe();
  PipeEnds output = makePipe();
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  id_ = ::fork();
  if (id_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(input.reading.get(), 0);
    ::dup2(output.writing.get(), 1);
    if (prepare) prepare();
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  input_ = std::move(input.writing);
  output_ = std::move(output.reading);
}

Program::~Program() {
  if (reaped_) return;
  ::kill(id_, SIGKILL);
  wait();
}

std::string Program::readLine() {
  std::string line;
  for (char c; ::read(output_.get(), &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

void Program::writeLine(const std::string& line) {
  const std::string text = line + "\n";
  EXPECT_EQ(::write(input_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string Program::readAll() {
  std::string text;
  char buffer[4096];
  for (ssize_t length; (length = ::read(output_.get(), buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(length));
  }
  return text;
}

int Program::wait() {
  int status = 0;
  while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
  }
  reaped_ = true;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string targetPath(const std::string& name) {
  return std::string(HOIST_BUILD_DIR "/bin/targets/") + name;
}

Target::Target(const std::string& name, const std::string& mode, int threads, int depth,
               const std::function<void()>& prepare)
    : Program({name.find('/') == name.npos ? targetPath(name) : name, mode, std::to_string(threads),
               std::to_string(depth)},
              prepare) {
  EXPECT_EQ(readLine(), "ready");
}

unsigned long Target::tell(const std::string& line) {
  writeLine(line);
  const std::string answer = readLine();
  EXPECT_EQ(answer.substr(0, 6), "turns ") << answer;
  return std::strtoul(answer.c_str() + std::min<std::size_t>(6, answer.size()), nullptr, 10);
}

std::vector<std::string> samplerCommand(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {HOIST_BUILD_DIR "/bin/sample"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

Outcome runSampler(const std::vector<std::string>& arguments,
                   const std::function<void()>& prepare) {
  Program sampler(samplerCommand(arguments), [&] {
    ::dup2(1, 2);
    if (prepare) prepare();
  });
  const std::string output = sampler.readAll();
  return {sampler.wait(), output};
}

std::string statusField(pid_t id, const std::string& field) {
  std::ifstream file("/proc/" + std::to_string(id) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(field + ":")) {
      return line.substr(std::min(line.find_first_not_of(" \t", field.size() + 1), line.size()));
    }
  }
  return {};
}

bool eventually(const std::function<bool()>& condition) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > until) return false;
    ::poll(nullptr, 0, 1);
  }
  return true;
}

bool isHeldSoon(pid_t id) {
  return eventually([=] { return statusField(id, "TracerPid") != "0"; });
}

}  // namespace hoist::sample
