// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sampling/BusyTarget.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace hoist::bench {
namespace {

struct Child {
  pid_t id;
  FileDescriptor input;
  FileDescriptor output;
};

// Standard error is thrown away.
Child start(const std::vector<std::string>& command) {
  PipeEnds input = makePipe();
  PipeEnds output = makePipe();
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t id = ::fork();
  if (id < 0) throw std::runtime_error("no child can be had");
  if (id == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(input.reading.get(), 0);
    ::dup2(output.writing.get(), 1);
    ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), 2);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  return {id, std::move(input.writing), std::move(output.reading)};
}

std::string readLine(int file) {
  std::string line;
  for (char c; ::read(file, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

BusyTarget::BusyTarget(int threads, int depth) : threads_(threads) {
  Child child = start({HOIST_BUILD_DIR "/bin/targets/target", "stir", std::to_string(threads),
                       std::to_string(depth)});
  id_ = child.id;
  input_ = std::move(child.input);
  output_ = std::move(child.output);
  if (readLine(output_.get()) != "ready") throw std::runtime_error("the target does not start");
}

BusyTarget::~BusyTarget() {
  ::kill(id_, SIGKILL);
  ::waitpid(id_, nullptr, 0);
}

double BusyTarget::turns() const {
  if (::write(input_.get(), "\n", 1) != 1) throw std::runtime_error("the target is gone");
  return std::stod(readLine(output_.get()).substr(6));
}

BusyTarget::Time BusyTarget::time() const {
  Time time;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + id() + "/task")) {
    if (entry.path().filename() == id()) continue;  // the first thread only listens
    double ran = 0;
    double waited = 0;
    std::ifstream(entry.path() / "schedstat") >> ran >> waited;
    time.ran += ran / 1e9;
    time.waited += waited / 1e9;
  }
  return time;
}

Finished run(const std::vector<std::string>& command) {
  const double from = now();
  Child child = start(command);
  child.input.reset();
  Finished finished{};
  char buffer[65536];
  for (ssize_t length; (length = ::read(child.output.get(), buffer, sizeof buffer)) > 0;) {
    finished.output.append(buffer, static_cast<std::size_t>(length));
  }
  int status = 0;
  rusage usage{};
  ::wait4(child.id, &status, 0, &usage);
  finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  finished.elapsed = now() - from;
  finished.processorTime = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  return finished;
}

}  // namespace hoist::bench
