// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// The kernel counts how often it gave a thread a processor (the third number of schedstat). A
// thread whose count stands still has not run. The look itself costs one turn: the thread is woken,
// stops, and goes back to sleep. So after a look at a thread that was asleep in a system call,
// exactly one more turn, the state "sleeping" and an unchanged stack say that it went back to where
// it was.
#include "sample/SleepWatch.h"

#include <unistd.h>

#include <charconv>
#include <functional>
#include <string_view>
#include <vector>

#include "sample/ProcessStatus.h"
#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

// What a system call that was interrupted in its sleep leaves in rax: EINTR, or one of the kernel's
// inner codes for "begin again" (include/linux/errno.h: ERESTARTSYS, ERESTARTNOINTR,
// ERESTARTNOHAND, ERESTART_RESTARTBLOCK).
bool sleptInSystemCall(const user_regs_struct& registers) {
  auto result = static_cast<std::int64_t>(registers.rax);
  return static_cast<std::int64_t>(registers.orig_rax) >= 0 &&
         (result == -4 || result == -512 || result == -513 || result == -514 || result == -516);
}

std::uint64_t digestOf(std::span<const std::byte> bytes) {
  return std::hash<std::string_view>()(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string_view readInto(const FileDescriptor& file, std::span<char> buffer) {
  ssize_t length = file ? ::pread(file.get(), buffer.data(), buffer.size(), 0) : 0;
  return {buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace

bool SleepWatch::open() {
  if (!schedule_) schedule_ = process_.openThreadFile(thread_, "schedstat");
  if (!status_) status_ = process_.openThreadFile(thread_, "stat");
  return schedule_ && status_;
}

// Nothing where the kernel does not count.
std::optional<std::uint64_t> SleepWatch::turns() const {
  char buffer[128];
  std::string_view text = readInto(schedule_, buffer);
  std::uint64_t turns = 0;
  std::size_t at = text.rfind(' ');
  if (at != std::string::npos)
    std::from_chars(text.data() + at + 1, text.data() + text.size(), turns);
  return turns == 0 ? std::nullopt : std::optional(turns);
}

bool SleepWatch::isAsleep() const {
  char buffer[1024];
  auto status = parseProcessStatus(readInto(status_, buffer));
  return status && status->isAsleep();
}

std::optional<std::uint64_t> SleepWatch::digest(Address from, std::size_t length) const {
  std::vector<std::byte> bytes(length);
  if (process_.readMemory(from, bytes) != length) return std::nullopt;
  return digestOf(bytes);
}

void SleepWatch::remember(const user_regs_struct& registers, std::span<const std::byte> stack) {
  place_.reset();
  if (!sleptInSystemCall(registers) || !open()) return;
  if (auto count = turns()) {
    place_ = Place{registers.rsp, stack.size(), digestOf(stack), *count, false};
  }
}

bool SleepWatch::isAsleepAtSamePlace() {
  if (!place_) return false;
  auto count = turns();
  if (place_->settled && count == place_->turns) return true;
  if (!place_->settled && count == place_->turns + 1 && isAsleep() &&
      digest(place_->stackPointer, place_->length) == place_->digest) {
    place_->turns = *count;
    place_->settled = true;
    return true;
  }
  place_.reset();
  return false;
}

}  // namespace hoist::sample
