// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Thread.h"

#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <string>
#include <system_error>

#include "platform/Clock.h"
#include "platform/Mutex.h"
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

// How long a thread waits for another body. Picked: long enough for whoever comes again and again.
constexpr std::chrono::seconds kSpareLife{1};

// The threads that wait for a body, and the bodies that are for them: never more than there are
// threads, so that nobody waits for a thread that is busy.
class SpareThreads {
 public:
  static SpareThreads& shared() {
    static auto& threads = *new SpareThreads;
    return threads;
  }

  void run(const char* name, std::function<void()> body) {
    {
      MutexLock lock(mutex_);
      if (bodies_.size() < waiting_) {
        bodies_.push_back(std::move(body));
        changed_.notify_one();
        return;
      }
    }
    startDetachedThread(name,
                        [this, body = std::move(body)]() mutable { runAll(std::move(body)); });
  }

 private:
  void runAll(std::function<void()> body) {
    while (body) {
      platform::contain("a thread", body);
      // What it holds goes before the wait.
      body = nullptr;
      body = next();
    }
  }

  // Null when none has come.
  std::function<void()> next() {
    MutexLock lock(mutex_);
    ++waiting_;
    bool hasCome =
        Clock::waitUntil(changed_, mutex_, Clock::instant() + kSpareLife,
                         [this]() NO_THREAD_SAFETY_ANALYSIS { return !bodies_.empty(); });
    --waiting_;
    if (!hasCome) return nullptr;
    auto body = std::move(bodies_.front());
    bodies_.pop_front();
    return body;
  }

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::size_t waiting_ GUARDED_BY(mutex_) = 0;
  std::deque<std::function<void()>> bodies_ GUARDED_BY(mutex_);
};

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

void runOnSpareThread(const char* name, std::function<void()> body) {
  SpareThreads::shared().run(name, std::move(body));
}

}  // namespace hoist
