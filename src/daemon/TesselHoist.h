// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "connection/KLConnectionServiceFactory.h"
#include "platform/Mutex.h"
#include "platform/RunLoop.h"

namespace hoist {

// When the timer is this near to firing, or nearer, a request pushes it back. In seconds.
inline constexpr double kKeepAliveWindow = 26.0;
// From the start of the current minute to the new fire date: 20 minutes and 26 seconds.
inline constexpr double kIdlePeriod = 1226.0;
// Between the shutdown of the vendor and the exit.
inline constexpr std::chrono::nanoseconds kExitDelay = std::chrono::milliseconds(500);

// The fire date that keepAlive sets: the given instant with its seconds cut off, plus the idle
// period.
Date postponedFireDate(Date now);

// The application object: owns the listener's vendor and ends the process when its timer fires.
// Everything but connectionVendor() and setConnectionVendor() belongs to the main thread.
class TesselHoist {
 public:
  // The function ends the process with the given status.
  explicit TesselHoist(std::function<void(int)> exit) : exit_(std::move(exit)) {}
  static TesselHoist* sharedHoist();
  static void setSharedHoist(TesselHoist* hoist);

  // Arms the timer and runs the main run loop.
  void run();
  // Arms the timer, 25 seconds away, and at once keeps it alive.
  void scheduleDeadManTimer();

  // Pushes the timer back when it is about to fire; a request that comes earlier does not extend
  // the daemon's life.
  void keepAlive();
  // Shuts the vendor down and ends the process with status 0 half a second later.
  void timeToDie();
  // Nothing once it has fired.
  const Ref<Timer>& deadManTimer() const { return deadManTimer_; }

  Ref<KLConnectionServiceFactory> connectionVendor() const;
  void setConnectionVendor(Ref<KLConnectionServiceFactory> vendor);

 private:
  const std::function<void(int)> exit_;
  Ref<Timer> deadManTimer_;
  mutable Mutex mutex_;
  Ref<KLConnectionServiceFactory> connectionVendor_ GUARDED_BY(mutex_);
};

// Sends keepAlive to the shared hoist, on the main queue. Safe from any thread.
void postKeepAlive();

}  // namespace hoist
