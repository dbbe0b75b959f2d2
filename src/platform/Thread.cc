// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Thread.h"

#include <pthread.h>
#include <signal.h>

#include <memory>
#include <string>
#include <system_error>

#include "platform/Trouble.h"

namespace hoist {
namespace {

struct Start {
  std::string name;
  std::function<void()> body;
};

void* runThread(void* argument) noexcept {
  std::unique_ptr<Start> start(static_cast<Start*>(argument));
  ::pthread_setname_np(::pthread_self(), start->name.substr(0, 15).c_str());
  platform::contain("thread " + start->name, start->body);
  return nullptr;
}

// Sanitizers put red zones and shadow frames on the stack.
#ifdef HOIST_SANITIZED
constexpr unsigned long kStackSize = 16 * kThreadStackSize;
#else
constexpr unsigned long kStackSize = kThreadStackSize;
#endif

}  // namespace

void startDetachedThread(const char* name, std::function<void()> body) {
  auto start = std::make_unique<Start>(Start{name, std::move(body)});
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  ::pthread_attr_setstacksize(&attributes, kStackSize);
  // Signals belong to the main thread; a new thread inherits the mask of its maker.
  sigset_t all, previous;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &previous);
  pthread_t thread;
  int failure = ::pthread_create(&thread, &attributes, runThread, start.get());
  ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  ::pthread_attr_destroy(&attributes);
  if (failure != 0) throw std::system_error(failure, std::system_category(), "pthread_create");
  start.release();
}

}  // namespace hoist
