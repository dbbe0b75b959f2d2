// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Watchdog.h"

#include <signal.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include "platform/SystemCall.h"

namespace hoist::sample {
namespace {

// Only what a signal handler may do.
void end(int signal) {
  static constexpr char kTime[] = "sample: no report: the time limit was reached\n";
  static constexpr char kProcessor[] = "sample: no report: the processor time limit was reached\n";
  const bool isTime = signal == SIGALRM;
  [[maybe_unused]] ssize_t written = ::write(STDERR_FILENO, isTime ? kTime : kProcessor,
                                             isTime ? sizeof kTime - 1 : sizeof kProcessor - 1);
  ::_exit(1);
}

void arm(int signal, std::chrono::milliseconds after) {
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = signal;
  timer_t timer;
  systemCall("timer_create", [&] { return ::timer_create(CLOCK_BOOTTIME, &event, &timer); });
  itimerspec time{};
  time.it_value.tv_sec = after.count() / 1000;
  time.it_value.tv_nsec = after.count() % 1000 * 1'000'000;
  systemCall("timer_settime", [&] { return ::timer_settime(timer, 0, &time, nullptr); });
}

}  // namespace

void startWatchdog(std::chrono::milliseconds limit) {
  struct sigaction action {};
  action.sa_handler = end;
  for (int signal : {SIGALRM, SIGXCPU}) ::sigaction(signal, &action, nullptr);
  arm(SIGALRM, limit);
  // A read that hangs in a network file system lets no handler run, only a kill.
  arm(SIGKILL, limit + std::chrono::seconds(2));
}

}  // namespace hoist::sample
