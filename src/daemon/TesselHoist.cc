// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/TesselHoist.h"

#include <atomic>

#include "platform/Clock.h"
#include "platform/Dispatch.h"

namespace hoist {
namespace {

constexpr double kFirstInterval = 25.0;

std::atomic<TesselHoist*>& shared() {
  static std::atomic<TesselHoist*> hoist = nullptr;
  return hoist;
}

}  // namespace

Date postponedFireDate(Date now) {
  constexpr std::int64_t kMinute = 60;
  // Cut towards the past, also before 1970.
  std::int64_t second = ((now.seconds() % kMinute) + kMinute) % kMinute;
  return Date(now.seconds() - second).plusSeconds(kIdlePeriod);
}

TesselHoist* TesselHoist::sharedHoist() {
  return shared();
}
void TesselHoist::setSharedHoist(TesselHoist* hoist) {
  shared() = hoist;
}

void TesselHoist::run() {
  scheduleDeadManTimer();
  RunLoop::main().run();
}

void TesselHoist::scheduleDeadManTimer() {
  deadManTimer_ = RunLoop::main().scheduleTimer(Clock::now().plusSeconds(kFirstInterval),
                                                [this] { timeToDie(); });
  keepAlive();
}

void TesselHoist::keepAlive() {
  if (!deadManTimer_) return;
  Date now = Clock::now();
  if (deadManTimer_->fireDate().secondsSince(now) > kKeepAliveWindow) return;
  deadManTimer_->setFireDate(postponedFireDate(now));
}

void TesselHoist::timeToDie() {
  deadManTimer_ = nullptr;
  if (auto vendor = connectionVendor()) vendor->shutdown();
  dispatch::mainQueue().after(kExitDelay, [this] { exit_(0); });
}

Ref<KLConnectionServiceFactory> TesselHoist::connectionVendor() const {
  MutexLock lock(mutex_);
  return connectionVendor_;
}

void TesselHoist::setConnectionVendor(Ref<KLConnectionServiceFactory> vendor) {
  MutexLock lock(mutex_);
  connectionVendor_ = std::move(vendor);
}

void postKeepAlive() {
  dispatch::mainQueue().async([] {
    if (auto hoist = TesselHoist::sharedHoist()) hoist->keepAlive();
  });
}

}  // namespace hoist
