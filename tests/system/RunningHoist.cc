// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "system/RunningHoist.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/FileDescriptor.h"
#include "values/product.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;

const std::string kBin = HOIST_BUILD_DIR "/bin";
const std::string kSocket =
    std::string(product::kRuntimeDirectory) + "/" + std::string(product::kHoistServiceName);

std::string readFile(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool canConnect() {
  FileDescriptor peer(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX};
  kSocket.copy(address.sun_path, sizeof address.sun_path - 1);
  return ::connect(peer.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

std::size_t countEntries(const std::string& folder) {
  std::size_t count = 0;
  std::error_code failure;
  fs::directory_iterator entries(folder, failure);
  for (; !failure && entries != fs::directory_iterator(); entries.increment(failure)) ++count;
  return count;
}

std::vector<pid_t> childrenOf(pid_t process) {
  std::vector<pid_t> children;
  std::string tasks = "/proc/" + std::to_string(process) + "/task";
  std::error_code failure;
  for (fs::directory_iterator task(tasks, failure); !failure && task != fs::directory_iterator();
       task.increment(failure)) {
    std::istringstream list(readFile(task->path().string() + "/children"));
    for (pid_t child; list >> child;) children.push_back(child);
  }
  return children;
}

}  // namespace

RunningHoist::RunningHoist() : folder_(Sandbox::shared().folder() + "/daemon") {
  fs::remove_all(folder_);
  fs::create_directory(folder_);
  fs::copy_file(kBin + "/hoist", folder_ + "/hoist");
  std::ofstream(folder_ + "/codesign") << "#!/bin/sh\necho >> " << folder_
                                       << "/verifications\nexec " << kBin << "/codesign \"$@\"\n";
  fs::permissions(folder_ + "/codesign", fs::perms::owner_all);
  fs::create_symlink(kBin + "/sample", folder_ + "/sample");
  FileDescriptor log(
      ::open((folder_ + "/log").c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600));
  task_ = ChildTask::launch({.launchPath = folder_ + "/hoist", .standardError = log.get()});
  // A file of the socket may still be there from a predecessor that was killed.
  while (!canConnect() && isRunning()) std::this_thread::yield();
  if (!isRunning()) throw std::runtime_error("the hoist did not start: " + this->log());
}

RunningHoist::~RunningHoist() {
  for (pid_t child : childrenOf(process())) ::kill(child, SIGKILL);
  task_->kill();
  task_->waitUntilExit();
}

std::string RunningHoist::log() const {
  return readFile(folder_ + "/log");
}

void RunningHoist::setSamplingTool(const std::string& program) {
  fs::remove(folder_ + "/sample");
  fs::create_symlink(program, folder_ + "/sample");
}

int RunningHoist::verifications() const {
  return static_cast<int>(readFile(folder_ + "/verifications").size());
}

RunningHoist::Holdings RunningHoist::holdings() const {
  std::string folder = "/proc/" + std::to_string(process());
  return {countEntries(folder + "/fd"), countEntries(folder + "/task"),
          childrenOf(process()).size()};
}

pid_t RunningHoist::onlyChild() const {
  auto children = childrenOf(process());
  return children.size() == 1 ? children[0] : 0;
}

RunningHoist::Holdings RunningHoist::holdingsAfterSettling(const Holdings& expected) const {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  Holdings now = holdings();
  while (!(now <= expected) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
    now = holdings();
  }
  return now;
}

ClientResult hoistctl(unsigned user, std::vector<std::string> arguments) {
  std::vector<std::string> command{"--reuid=" + std::to_string(user),
                                   "--regid=" + std::to_string(user), "--clear-groups",
                                   kBin + "/hoistctl", "--json"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  auto result = runProgram("/usr/bin/setpriv", command);
  return {result.status, nlohmann::json::parse(result.output, nullptr, false)};
}

ClientResult launch(unsigned user, const std::string& executable, const std::string& command,
                    const std::vector<std::string>& flags) {
  std::vector<std::string> arguments{"launch", executable, "--command", command};
  for (const auto& flag : flags) arguments.push_back("--flag=" + flag);
  return hoistctl(user, arguments);
}

}  // namespace hoist
