// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The thread that drives waits for three things: the command's end, which the connection's thread
// reports through an event descriptor, a signal, and the time at which the state is asked for
// again. A helper that is lost is noticed by that question.

#include "hoistctl/CommandRun.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "connection/protocols/CommandMessaging.h"
#include "hoistctl/Ask.h"
#include "platform/Mutex.h"
#include "platform/SystemCall.h"

namespace hoist::ctl {
namespace {

// How often the state is asked for. Picked: fluent to the eye, nothing to the helper.
constexpr int kRefreshMilliseconds = 200;

sigset_t endingSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&signals, signal);
  return signals;
}

}  // namespace

EndingSignals::EndingSignals() {
  sigset_t signals = endingSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  descriptor_ = FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!descriptor_) throwSystemCallError("signalfd");
}

EndingSignals::~EndingSignals() {
  sigset_t signals = endingSignals();
  ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

int EndingSignals::take() {
  signalfd_siginfo info{};
  if (::read(descriptor_.get(), &info, sizeof info) != sizeof info) return 0;
  return static_cast<int>(info.ssi_signo);
}

// Shared with the connection's thread.
struct CommandRun::Result {
  Result() : arrived(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!arrived) throwSystemCallError("eventfd");
  }
  void arrive(std::optional<Data> data) {
    {
      MutexLock lock(mutex);
      exceptionData = std::move(data);
    }
    ::eventfd_write(arrived.get(), 1);
  }

  const FileDescriptor arrived;
  Mutex mutex;
  std::optional<Data> exceptionData GUARDED_BY(mutex);
};

void CommandRun::set(const std::vector<Setting>& settings) {
  for (const auto& setting : settings) {
    if (!ask<&CommandMessaging::querySupportsProperty, bool>(helper_, setting.property()))
      throw CommandError(Failure::Refused,
                         "the helper does not support the property " + setting.property());
  }
  if (settings.empty()) return;
  roundTrip(helper_, [&](const xpc::Proxy& proxy) {
    for (const auto& setting : settings) setting.send(proxy);
  });
}

std::optional<Data> CommandRun::run() {
  auto result = make<Result>();
  roundTrip(helper_, [&](const xpc::Proxy& proxy) {
    proxy.send<&CommandMessaging::runWithReply>(
        [result](std::optional<Data> exceptionData) { result->arrive(std::move(exceptionData)); });
  });
  for (;;) {
    pollfd waited[] = {{.fd = result->arrived.get(), .events = POLLIN},
                       {.fd = signals_.descriptor(), .events = POLLIN}};
    int ready = retryInterrupted([&] { return ::poll(waited, 2, kRefreshMilliseconds); });
    if (ready < 0) throwSystemCallError("poll");
    if (waited[0].revents != 0) break;
    if (waited[1].revents != 0) handleSignal();
    showState();
  }
  status_.clear();
  MutexLock lock(result->mutex);
  return std::move(result->exceptionData);
}

void CommandRun::handleSignal() {
  int signal = signals_.take();
  if (signal == 0) return;
  if (std::exchange(cancelled_, true)) {
    status_.clear();
    throw CommandError(Failure::Failed, "left the command running");
  }
  roundTrip(helper_,
            [&](const xpc::Proxy& proxy) { proxy.send<&CommandMessaging::cancelFrom>(signal); });
}

void CommandRun::showState() {
  struct State {
    Mutex mutex;
    bool held GUARDED_BY(mutex) = false;
    bool paused GUARDED_BY(mutex) = false;
    std::string text GUARDED_BY(mutex);
  };
  auto state = make<State>();
  roundTrip(helper_, [&](const xpc::Proxy& proxy) {
    proxy.send<&CommandMessaging::queryRunStateWithReply>([state](bool, bool, bool held) {
      MutexLock lock(state->mutex);
      state->held = held;
    });
    proxy.send<&CommandMessaging::queryIsPausedWithReply>([state](bool paused) {
      MutexLock lock(state->mutex);
      state->paused = paused;
    });
    proxy.send<&CommandMessaging::queryDisplayDescriptionWithReply>(
        [state](const std::optional<std::string>& text) {
          MutexLock lock(state->mutex);
          state->text = text.value_or("");
        });
  });
  MutexLock lock(state->mutex);
  const char* name = cancelled_      ? "cancelling"
                     : state->held   ? "held"
                     : state->paused ? "paused"
                                     : "running";
  status_.show(name, state->text);
}

}  // namespace hoist::ctl
