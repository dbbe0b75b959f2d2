// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// A thread is held with PTRACE_SEIZE, which does not stop it, and stopped with PTRACE_INTERRUPT for
// the microseconds that copying its registers and the near part of its stack takes. Each thread is
// stopped on its own, never the whole process; unwinding is done elsewhere, from the copy. New
// threads arrive by PTRACE_O_TRACECLONE, which needs no rights. PTRACE_O_EXITKILL is never set, and
// nothing here sends SIGSTOP: there is no state that would outlive the sampler.
//
// A process that is stopped (SIGSTOP, a terminal's Ctrl-Z) stays so: its threads are looked at once
// and then left in their stop with PTRACE_LISTEN.
#include "sample/Tracer.h"

#include <fmt/format.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <thread>

#include "platform/SystemCall.h"
#include "sample/CaptureQueue.h"
#include "sample/Refusal.h"
#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

constexpr int kOptions = PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC;
// Only of this thread's tracees, processes and threads alike.
constexpr int kWaitFlags = __WALL | __WNOTHREAD | WNOHANG;
// How long the threads that were asked last may take to answer when time is up. One that only waits
// for a processor will answer, however busy the machine is; one that waits inside the kernel may
// never do so.
constexpr auto kLastAnswers = std::chrono::milliseconds(20);
constexpr auto kLastAnswersOfRunnable = std::chrono::seconds(5);
// From a thread's stop until its event is seen, and from letting it go until it runs; measured.
constexpr auto kWayBackAndForth = std::chrono::microseconds(10);
// Each costs the target about 0.2 ms; measured.
constexpr int kMostNewThreadsASecond = 100;

std::chrono::nanoseconds processorTime() {
  timespec time;
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

FileDescriptor openSignals() {
  sigset_t set;
  ::sigemptyset(&set);
  for (int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&set, signal);
  return FileDescriptor(
      systemCall("signalfd", [&] { return ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK); }));
}

std::string tracerOf(const TargetProcess& process) {
  return fmt::format("process {} may not be traced: {}", process.id(),
                     errno == EPERM
                         ? "the system does not permit it, or a debugger holds it already"
                         : errorText(errno));
}

}  // namespace

Tracer::Thread::Thread(const TargetProcess& process, pid_t id)
    : shared(std::make_shared<SampledThread>(id)), sleep(process, id) {}

Tracer::Tracer(const TargetProcess& process, CaptureQueue& queue, std::chrono::nanoseconds interval)
    : process_(process),
      queue_(queue),
      signals_(openSignals()),
      pace_(interval, std::thread::hardware_concurrency()) {}

Tracer::~Tracer() = default;

void Tracer::attach() {
  // While a thread stands still its tracer must not wait for a processor. It needs little of one
  // (see Pace) and never computes without an end. Only root may ask for this.
  const sched_param priority{.sched_priority = 1};
  ::sched_setscheduler(0, SCHED_RR, &priority);
  // Threads begin and end while they are listed: repeat until a round finds no new one. Those that
  // a held thread begins come by themselves.
  int refusal = 0;
  while (seizeNewThreads(refusal)) {
  }
  if (threads_.empty()) {
    errno = refusal;
    throw Refusal(refusal == 0 || refusal == ESRCH
                      ? fmt::format("process {} has ended", process_.id())
                      : tracerOf(process_));
  }
  if (!process_.isSame()) throw Refusal(fmt::format("process {} has ended", process_.id()));
  process_.refuseWhatIsNotTheClients();
}

// True if there was one.
bool Tracer::seizeNewThreads(int& refusal) {
  bool found = false;
  for (pid_t id : process_.threads()) {
    if (threads_.contains(id)) continue;
    if (::ptrace(PTRACE_SEIZE, id, nullptr, kOptions) != 0) {
      auto status = process_.threadStatus(id);
      if (status && !status->isZombie()) refusal = errno;
      continue;
    }
    if (!process_.hasThread(id)) {
      // The number passed to another process's thread between listing and taking hold (or the
      // thread has just ended): asked to stop, it is let go as soon as it does.
      ::ptrace(PTRACE_INTERRUPT, id, nullptr, nullptr);
      continue;
    }
    add(id);
    found = true;
  }
  return found;
}

Tracer::Thread& Tracer::add(pid_t id) {
  Thread& thread = threads_.try_emplace(id, process_, id).first->second;
  all_.push_back(thread.shared);
  return thread;
}

TraceResult Tracer::run(std::chrono::nanoseconds duration) {
  ::prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0);
  const auto start = Clock::now();
  auto next = start;
  auto used = processorTime();
  while (!isOver() && Clock::now() < start + duration) {
    if (!queue_.isFull()) takeSample();
    const auto usedNow = processorTime();
    pace_.add(stops_ > 0 ? stopped_ / stops_ : stopped_, usedNow - used);
    used = usedNow;
    stopped_ = {};
    stops_ = 0;
    next = std::max(next + pace_.interval(), Clock::now());
    waitUntil(std::min(next, start + duration));
  }
  const auto sampled = std::min(Clock::now() - start, duration);
  settleUp();
  using End = TraceResult::End;
  End end = replaced_                    ? End::ProcessReplaced
            : interrupted_               ? End::Interrupted
            : ended_ || threads_.empty() ? End::ProcessEnded
                                         : End::TimeIsUp;
  return {end, samples_, sampled, followedAll_, all_};
}

void Tracer::takeSample() {
  ++samples_;
  for (auto& [id, thread] : threads_) look(thread);
}

void Tracer::look(Thread& thread) {
  if (thread.state == Thread::State::Asked) {
    ++thread.owed;  // still the same moment of its life: it has not come back from the kernel
  } else if (thread.captured &&
             (thread.state == Thread::State::Stopped || thread.sleep.isAsleepAtSamePlace())) {
    ++thread.repeats;
  } else {
    ask(thread);
  }
}

void Tracer::ask(Thread& thread) {
  thread.owed = 1;
  thread.askedAt = Clock::now();
  thread.state = Thread::State::Asked;
  // Refused to a thread that is just ending: its end is on the way.
  ::ptrace(PTRACE_INTERRUPT, thread.shared->id, nullptr, nullptr);
}

// Handles what has happened until the time has come.
void Tracer::waitUntil(Clock::time_point until) {
  while (!isOver()) {
    eventsFrom_ = Clock::now();
    handleEvents();
    const auto left = until - Clock::now();
    if (left.count() <= 0) return;
    pollfd descriptors[] = {{signals_.get(), POLLIN, 0}, {process_.endDescriptor(), POLLIN, 0}};
    const timespec wait{left / std::chrono::seconds(1), (left % std::chrono::seconds(1)).count()};
    ::ppoll(descriptors, 2, &wait, nullptr);
    signalfd_siginfo signal;
    while (::read(signals_.get(), &signal, sizeof signal) == sizeof signal) {
      if (signal.ssi_signo != SIGCHLD) interrupted_ = true;
    }
    // A first thread that ended before the others is no end; one that is not held may tell of it.
    if ((descriptors[1].revents & POLLIN) != 0) ended_ = true;
  }
}

void Tracer::handleEvents() {
  for (;;) {
    int status = 0;
    pid_t id = retryInterrupted([&] { return ::waitpid(-1, &status, kWaitFlags); });
    if (id <= 0) return;
    if (WIFSTOPPED(status)) {
      handleStop(id, status);
    } else if (auto found = threads_.find(id); found != threads_.end()) {
      sendRepeats(found->second);
      threads_.erase(found);
    }
  }
}

void Tracer::handleStop(pid_t id, int status) {
  auto found = threads_.find(id);
  if (found == threads_.end()) {
    // A new thread, or a process of the target's that was begun in an unusual way.
    if (!process_.hasThread(id)) {
      ::ptrace(PTRACE_DETACH, id, nullptr, nullptr);
      return;
    }
    add(id);
    found = threads_.find(id);
  }
  switch (status >> 16) {
    case 0:
      letGo(id, WSTOPSIG(status));  // a signal on its way
      break;
    case PTRACE_EVENT_STOP:
      handleTrap(found->second, WSTOPSIG(status));
      break;
    case PTRACE_EVENT_CLONE:
      handleClone(id);
      break;
    case PTRACE_EVENT_EXEC:
      replaced_ = true;
      [[fallthrough]];
    default:
      letGo(id, 0);
  }
}

// Following a new thread stops it and the one that began it for a moment. One that begins thread
// upon thread is followed no more, or it would be slowed down beyond what was promised.
void Tracer::handleClone(pid_t id) {
  const auto now = Clock::now();
  if (now - clonesFrom_ > std::chrono::seconds(1)) {
    clonesFrom_ = now;
    clones_ = 0;
  }
  if (++clones_ > kMostNewThreadsASecond) {
    followedAll_ = false;
    ::ptrace(PTRACE_SETOPTIONS, id, nullptr, PTRACE_O_TRACEEXEC);
  }
  letGo(id, 0);
}

// The signal is SIGTRAP for a stop of our own making, else the one that stopped the whole process.
void Tracer::handleTrap(Thread& thread, int signal) {
  const pid_t id = thread.shared->id;
  if (signal == SIGTRAP) {
    const bool asked = thread.state == Thread::State::Asked;
    if (asked) capture(thread);
    letGo(id, 0);
    thread.state = Thread::State::Running;
    if (!asked) return;  // a new thread, or the end of a stop
    stopped_ += Clock::now() - std::max(thread.askedAt, eventsFrom_ - kWayBackAndForth);
    ++stops_;
    return;
  }
  capture(thread);
  ::ptrace(PTRACE_LISTEN, id, nullptr, nullptr);
  thread.state = Thread::State::Stopped;
}

void Tracer::letGo(pid_t id, int signal) {
  ::ptrace(PTRACE_CONT, id, nullptr, signal);
}

void Tracer::capture(Thread& thread) {
  user_regs_struct registers;
  if (::ptrace(PTRACE_GETREGS, thread.shared->id, nullptr, &registers) != 0) return;
  sendRepeats(thread);
  Capture taken;
  taken.thread = thread.shared;
  taken.weight = thread.owed;
  taken.registers = Registers::of(registers);
  taken.stack.resize(thread.shared->stackBytes.load(std::memory_order_relaxed));
  taken.stack.resize(process_.readMemory(registers.rsp, taken.stack));
  thread.sleep.remember(registers, taken.stack);
  // Asked once more at the end; but a thread that has ended by then has no name left.
  if (!thread.captured) thread.shared->name = process_.threadName(thread.shared->id);
  thread.captured = true;
  thread.owed = 0;
  queue_.put(std::move(taken));
}

void Tracer::sendRepeats(Thread& thread) {
  if (thread.repeats == 0) return;
  Capture same;
  same.thread = thread.shared;
  same.kind = Capture::Kind::SameAsBefore;
  same.weight = std::exchange(thread.repeats, 0);
  queue_.put(std::move(same));
}

bool Tracer::willAnswer(const Thread& thread) const {
  if (thread.state != Thread::State::Asked) return false;
  const auto status = process_.threadStatus(thread.shared->id);
  return status && status->isRunnable();
}

// At the end: hears the last answers, and accounts for the threads that never gave one.
void Tracer::settleUp() {
  const auto start = Clock::now();
  auto isAsked = [](const auto& entry) { return entry.second.state == Thread::State::Asked; };
  auto willAnswer = [this](const auto& entry) { return this->willAnswer(entry.second); };
  auto isWorthWaiting = [&] {
    const auto waited = Clock::now() - start;
    if (waited < kLastAnswers) return std::any_of(threads_.begin(), threads_.end(), isAsked);
    return waited < kLastAnswersOfRunnable &&
           std::any_of(threads_.begin(), threads_.end(), willAnswer);
  };
  while (!isOver() && isWorthWaiting()) {
    waitUntil(Clock::now() + std::chrono::milliseconds(1));
  }
  for (auto& [id, thread] : threads_) {
    sendRepeats(thread);
    if (thread.state == Thread::State::Asked && process_.isAlive()) {
      Capture none;
      none.thread = thread.shared;
      none.kind = Capture::Kind::OutOfReach;
      none.weight = thread.owed;
      queue_.put(std::move(none));
    }
    if (std::string name = process_.threadName(id); !name.empty()) thread.shared->name = name;
  }
}

}  // namespace hoist::sample
