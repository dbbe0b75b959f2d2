// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/CaptureQueue.h"

namespace hoist::sample {
namespace {

std::size_t sizeOf(const Capture& capture) {
  return sizeof capture + capture.stack.capacity();
}

}  // namespace

void CaptureQueue::put(Capture capture) {
  MutexLock lock(mutex_);
  bytes_ += sizeOf(capture);
  waiting_.push_back(std::move(capture));
  changed_.notify_one();
}

void CaptureQueue::close() {
  MutexLock lock(mutex_);
  closed_ = true;
  changed_.notify_one();
}

std::optional<Capture> CaptureQueue::take() {
  MutexLock lock(mutex_);
  while (waiting_.empty() && !closed_) changed_.wait(lock);
  if (waiting_.empty()) return std::nullopt;
  Capture capture = std::move(waiting_.front());
  waiting_.pop_front();
  bytes_ -= sizeOf(capture);
  return capture;
}

bool CaptureQueue::isFull() {
  MutexLock lock(mutex_);
  return bytes_ >= kFullBytes;
}

}  // namespace hoist::sample
