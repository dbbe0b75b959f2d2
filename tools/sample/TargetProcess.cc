// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/TargetProcess.h"

#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>

#include "platform/ProcessIdentity.h"
#include "platform/SystemCall.h"
#include "sample/Refusal.h"

namespace hoist::sample {
namespace {

// A process has at most vm.max_map_count mappings (65,530 by default) of at most 4 KiB of text.
constexpr std::size_t kLongestFile = 256u * 1024 * 1024;

// The whole of a file of /proc from its beginning; empty when it cannot be read.
std::string readFromStart(int file) {
  std::string text;
  std::size_t length = 0;
  while (length < kLongestFile) {
    if (text.size() - length < 16 * 1024)
      text.resize(std::max<std::size_t>(32768, text.size() * 2));
    ssize_t count = retryInterrupted([&] {
      return ::pread(file, text.data() + length, text.size() - length, static_cast<off_t>(length));
    });
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  text.resize(length);
  return text;
}

std::string readAt(int directory, const std::string& name) {
  FileDescriptor file(::openat(directory, name.c_str(), O_RDONLY | O_CLOEXEC));
  return file ? readFromStart(file.get()) : std::string();
}

std::string readLinkAt(int directory, const char* name) {
  std::string target(4096, '\0');
  ssize_t length = ::readlinkat(directory, name, target.data(), target.size());
  target.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return target;
}

}  // namespace

TargetProcess TargetProcess::open(pid_t id) {
  TargetProcess process;
  process.id_ = id;
  process.openPinned();
  process.refuseWhatHasNoStacks();
  process.openWithRights();
  process.refuseWhatIsNotTheClients();
  process.refuse32Bit();
  return process;
}

void TargetProcess::openPinned() {
  pidfd_.reset(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0)));
  const int number = pidfd_ ? 0 : errno;
  directory_.reset(
      ::open(fmt::format("/proc/{}", id_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // For the number of a thread that leads no process pidfd_open says ENOENT or, older, EINVAL.
  if (!pidfd_ && directory_) throw Refusal(fmt::format("{} is a thread, not a process", id_));
  auto status = directory_ ? parseProcessStatus(readAt(directory_.get(), "stat")) : std::nullopt;
  if (!pidfd_ || !status) {
    throw Refusal(number == 0 || number == ESRCH
                      ? fmt::format("there is no process {}", id_)
                      : fmt::format("cannot hold process {}: {}", id_, errorText(number)));
  }
  status_ = std::move(*status);
}

void TargetProcess::refuseWhatHasNoStacks() const {
  if (id_ == ::getpid()) throw Refusal("a sampler cannot sample itself");
  if (status_.isKernelThread()) {
    throw Refusal(
        fmt::format("process {} is a thread of the kernel: it has no stack to sample", id_));
  }
}

void TargetProcess::openWithRights() {
  tasks_.reset(::openat(directory_.get(), "task", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // The first thread of a process may end before the others: it is a zombie then and shows no
  // memory, but any other one does.
  const std::vector<pid_t> all = threads();
  const auto living = std::find_if(all.begin(), all.end(), [&](pid_t thread) {
    auto status = threadStatus(thread);
    return status && !status->isZombie();
  });
  if (living == all.end()) throw Refusal(fmt::format("process {} has ended (it is a zombie)", id_));
  memory_ = openThreadFile(*living, "mem");
  if (!memory_) {
    throw Refusal(fmt::format("process {} may not be looked into: {}", id_, errorText(errno)));
  }
  maps_ = openThreadFile(*living, "maps");
  mappedFiles_.reset(::openat(directory_.get(), "map_files", O_PATH | O_DIRECTORY | O_CLOEXEC));
  rootDirectory_.reset(::openat(tasks_.get(), fmt::format("{}/root", *living).c_str(),
                                O_PATH | O_DIRECTORY | O_CLOEXEC));
  path_ = readLinkAt(tasks_.get(), fmt::format("{}/exe", *living).c_str());
}

void TargetProcess::refuseWhatIsNotTheClients() const {
  const uid_t client = ::getuid();
  if (client == 0 || client == ::geteuid()) return;  // root may, or the kernel decides
  const auto identity = platform::ProcessIdentity::ofProcessFolder(directory_.get());
  if (!identity) throw Refusal(fmt::format("process {} has ended", id_));
  if (!identity->isWholly(client) && !identity->isRootsOnBehalfOf(client)) {
    throw Refusal(fmt::format("process {} is not for user {} to look into", id_, client));
  }
}

void TargetProcess::refuse32Bit() const {
  for (const Mapping& mapping : memoryMap()) {
    unsigned char magic[EI_NIDENT] = {};
    if (!mapping.isFile() || mapping.offset != 0) continue;
    readMemory(mapping.start, std::as_writable_bytes(std::span(magic)));
    if (std::equal(magic, magic + SELFMAG, ELFMAG) && magic[EI_CLASS] == ELFCLASS32) {
      throw Refusal(fmt::format("process {} is a 32-bit program, which is not supported", id_));
    }
    if (std::equal(magic, magic + SELFMAG, ELFMAG)) return;
  }
}

Date TargetProcess::started() const {
  std::string statistics = readAt(AT_FDCWD, "/proc/stat");
  std::size_t at = statistics.find("\nbtime ");
  if (at == std::string::npos) return {};
  std::int64_t boot = 0;
  std::from_chars(statistics.data() + at + 7, statistics.data() + statistics.size(), boot);
  auto perSecond = static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK));
  return Date(boot + static_cast<std::int64_t>(status_.startTicks / perSecond));
}

bool TargetProcess::isAlive() const {
  pollfd end{pidfd_.get(), POLLIN, 0};
  return retryInterrupted([&] { return ::poll(&end, 1, 0); }) == 0;
}

bool TargetProcess::isSame() const {
  auto pinned = parseProcessStatus(readAt(directory_.get(), "stat"));
  auto numbered = parseProcessStatus(readAt(AT_FDCWD, fmt::format("/proc/{}/stat", id_)));
  return isAlive() && pinned && numbered && pinned->startTicks == status_.startTicks &&
         numbered->startTicks == status_.startTicks;
}

std::vector<pid_t> TargetProcess::threads() const {
  std::vector<pid_t> found;
  int copy = tasks_ ? ::openat(tasks_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
  if (copy < 0) return found;
  std::unique_ptr<DIR, int (*)(DIR*)> folder(::fdopendir(copy), ::closedir);
  while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr) {
    std::string_view name = entry->d_name;
    pid_t thread = 0;
    std::from_chars(name.data(), name.data() + name.size(), thread);
    if (thread > 0) found.push_back(thread);
  }
  return found;
}

bool TargetProcess::hasThread(pid_t thread) const {
  return ::faccessat(tasks_.get(), fmt::format("{}", thread).c_str(), F_OK, 0) == 0;
}

std::string TargetProcess::threadName(pid_t thread) const {
  std::string name = readAt(tasks_.get(), fmt::format("{}/comm", thread));
  if (name.ends_with('\n')) name.pop_back();
  return name;
}

std::optional<ProcessStatus> TargetProcess::threadStatus(pid_t thread) const {
  return parseProcessStatus(readAt(tasks_.get(), fmt::format("{}/stat", thread)));
}

FileDescriptor TargetProcess::openThreadFile(pid_t thread, const char* name) const {
  return FileDescriptor(
      ::openat(tasks_.get(), fmt::format("{}/{}", thread, name).c_str(), O_RDONLY | O_CLOEXEC));
}

std::size_t TargetProcess::readMemory(Address address, std::span<std::byte> into) const {
  std::size_t done = 0;
  while (done < into.size()) {
    ssize_t count = retryInterrupted([&] {
      return ::pread(memory_.get(), into.data() + done, into.size() - done,
                     static_cast<off_t>(address + done));
    });
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

std::vector<Mapping> TargetProcess::memoryMap() const {
  return parseMemoryMap(readFromStart(maps_.get()));
}

}  // namespace hoist::sample
