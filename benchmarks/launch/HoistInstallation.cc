// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "launch/HoistInstallation.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "launch/Ways.h"
#include "platform/SystemCall.h"
#include "platform/xpc/Peer.h"
#include "values/product.h"

namespace hoist::bench {
namespace {

constexpr std::chrono::seconds kPatience{20};

const std::string kPrograms = HOIST_BUILD_DIR "/bin";

std::string socketPath() {
  return std::string(product::kRuntimeDirectory) + "/" + std::string(product::kHoistServiceName);
}

// An empty folder in memory, in the place of whatever is there, for this process and its children.
void coverFolder(const std::string& path) {
  std::filesystem::create_directories(path);
  systemCall("mount", [&] { return ::mount("bench", path.c_str(), "tmpfs", 0, "mode=0755"); });
}

void run(const std::string& command) {
  if (::system((command + " >/dev/null").c_str()) != 0)
    throw std::runtime_error("failed: " + command);
}

}  // namespace

HoistInstallation::HoistInstallation() {
  coverFolder(std::string(product::kRuntimeDirectory));
  coverFolder(std::string(product::kTrustDirectory));
  systemCall("chmod", [&] { return ::chmod(folder_.path().c_str(), 0755); });
  installHelper();
  startHoist();
  connectAsUser();
  // The first launch verifies the signature and keeps the bytes; the others find them.
  launch();
  waitForTheEndOfTheHelper();
}

HoistInstallation::~HoistInstallation() {
  connection_->invalidate();
  ::kill(hoist_, SIGKILL);
  ::waitpid(hoist_, nullptr, 0);
}

void HoistInstallation::installHelper() {
  run(HOIST_SOURCE_DIR "/examples/signing/install-helper " + folder_.path() + " " + kPrograms +
      " " + HOIST_BUILD_DIR "/helper/bench_helper " + std::to_string(kUser) + " " +
      std::string(product::kTrustDirectory));
  helper_ = folder_ / "KelvoHelper.app/Contents/Linux/KelvoHelper";
}

void HoistInstallation::startHoist() {
  const std::string program = kPrograms + "/hoist";
  hoist_ = ::fork();
  if (hoist_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int log = ::open((folder_ / "log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ::dup2(log, STDERR_FILENO);
    ::execl(program.c_str(), "hoist", nullptr);
    ::_exit(127);
  }
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!std::filesystem::exists(socketPath())) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("no hoist");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void HoistInstallation::connectAsUser() {
  connection_ = xpc::Connection::initWithMachServiceName(std::string(product::kHoistServiceName));
  connection_->setRemoteObjectInterface(
      xpc::Interface::interfaceWithProtocol(tesselHoistingProtocol()));
  proxy_ = connection_->remoteObjectProxyWithErrorHandler([this](const Ref<Error>&) {
    std::lock_guard lock(mutex_);
    failed_ = true;
    changed_.notify_one();
  });
  // Who connects is what counts; the C library changes the user of every thread.
  systemCall("seteuid", [] { return ::seteuid(kUser); });
  connection_->resume();
  std::unique_lock lock(mutex_);
  proxy_->send<&TesselHoisting::barrierWithCompletion>([this] {
    std::lock_guard inner(mutex_);
    answered_ = true;
    changed_.notify_one();
  });
  wait(lock);
  systemCall("seteuid", [] { return ::seteuid(0); });
}

void HoistInstallation::wait(std::unique_lock<std::mutex>& lock) {
  if (!changed_.wait_for(lock, kPatience, [this] { return answered_ || failed_; }))
    throw std::runtime_error("the hoist does not answer");
  if (failed_) throw std::runtime_error("the hoist is gone");
  answered_ = false;
}

void HoistInstallation::launch() {
  std::unique_lock lock(mutex_);
  endpoint_.reset();
  proxy_->send<&TesselHoisting::launchPrivilegedHelper>(
      helper_, "capture", std::vector<std::string>{"verbose"},
      [this](const std::optional<std::string>&, std::optional<xpc::Endpoint> endpoint) {
        std::lock_guard inner(mutex_);
        endpoint_ = std::move(endpoint);
        answered_ = true;
        changed_.notify_one();
      });
  wait(lock);
  if (!endpoint_) throw std::runtime_error("the hoist did not launch the helper");
}

void HoistInstallation::waitForTheEndOfTheHelper() {
  const auto helper = xpc::Peer::processDescriptorOfSocket(endpoint_->descriptor());
  pollfd end = {helper.get(), POLLIN, 0};
  const int patience = static_cast<int>(std::chrono::milliseconds(kPatience).count());
  if (helper && ::poll(&end, 1, patience) != 1) throw std::runtime_error("the helper does not end");
  // Until the hoist has collected it, a process that has ended still takes signals.
  while (helper && ::syscall(SYS_pidfd_send_signal, helper.get(), 0, nullptr, 0) == 0)
    ::sched_yield();
}

}  // namespace hoist::bench
