// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "platform/FileDescriptor.h"
#include "sample/Capture.h"
#include "sample/Pace.h"
#include "sample/SleepWatch.h"

struct user_regs_struct;

namespace hoist::sample {

class CaptureQueue;
class TargetProcess;

// How the sampling went.
struct TraceResult {
  enum class End { TimeIsUp, ProcessEnded, ProcessReplaced, Interrupted };
  End end = End::TimeIsUp;
  // How often the process was looked at.
  std::uint64_t samples = 0;
  std::chrono::nanoseconds sampled{};
  // False if the process began threads so quickly that not all of them were followed.
  bool followedAll = true;
  // Of those that were held, by age.
  std::vector<std::shared_ptr<SampledThread>> threads;
};

// Holds the target's threads and looks at them from time to time. Belongs to one thread, which is
// its tracer for the kernel: however that thread ends, by return, by an exception or with the whole
// process killed, the kernel lets go of every traced thread and leaves it as it would be without a
// tracer. The signals SIGCHLD, SIGINT and SIGTERM must be blocked in the whole process before.
class Tracer {
 public:
  using Clock = std::chrono::steady_clock;

  Tracer(const TargetProcess& process, CaptureQueue& queue, std::chrono::nanoseconds interval);
  ~Tracer();

  // Takes hold of every thread of the process without stopping any. Throws Refusal.
  void attach();
  // Samples for the duration, or until the process ends, becomes another program, or the user
  // interrupts the sampler. May be called once, after attach.
  TraceResult run(std::chrono::nanoseconds duration);

 private:
  struct Thread {
    Thread(const TargetProcess& process, pid_t id);

    std::shared_ptr<SampledThread> shared;
    SleepWatch sleep;
    enum class State { Running, Asked, Stopped } state = State::Running;
    bool captured = false;
    Clock::time_point askedAt;
    // Samples that the next capture stands for, and those that the last one stands for besides.
    std::uint64_t owed = 0;
    std::uint64_t repeats = 0;
  };

  bool seizeNewThreads(int& refusal);
  Thread& add(pid_t id);
  void takeSample();
  void look(Thread& thread);
  void ask(Thread& thread);
  void handleEvents();
  void handleStop(pid_t id, int status);
  void handleClone(pid_t id);
  void handleTrap(Thread& thread, int signal);
  void capture(Thread& thread);
  void letGo(pid_t id, int signal);
  void sendRepeats(Thread& thread);
  bool willAnswer(const Thread& thread) const;
  void settleUp();
  void waitUntil(Clock::time_point until);
  bool isOver() const { return ended_ || replaced_ || interrupted_ || threads_.empty(); }

  const TargetProcess& process_;
  CaptureQueue& queue_;
  FileDescriptor signals_;
  Pace pace_;
  std::map<pid_t, Thread> threads_;
  std::vector<std::shared_ptr<SampledThread>> all_;
  bool ended_ = false;
  bool replaced_ = false;
  bool interrupted_ = false;
  std::uint64_t samples_ = 0;

  // New threads within the second that began then.
  Clock::time_point clonesFrom_;
  int clones_ = 0;
  bool followedAll_ = true;

  // Since the sample before: how long running threads stood still, and how many of them.
  Clock::time_point eventsFrom_;
  std::chrono::nanoseconds stopped_{};
  int stops_ = 0;
};

}  // namespace hoist::sample
