// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// A program to be sampled: target MODE THREADS DEPTH. Each thread calls kitchen::Cook::descend
// DEPTH times and then does what MODE says at the bottom: "stir" computes, "wait" sleeps in
// epoll_wait, "rest" sleeps on a lock, "signal" computes inside a signal handler, "vfork" waits in
// the kernel for a child, "secret" computes and lets nobody look into it, "churn" begins and ends
// threads. It says "ready" on standard output when all threads are at the bottom, and then obeys
// the lines of its standard input: "serve FILE" loads a library and has a new thread call its
// serve(), "map FILE" maps the file as if it were a program, "exec FILE" becomes another program,
// "quit" ends the first thread alone. The answer to each line, known or not, is "turns N": how much
// the computing threads have done. It ends with standard input.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kitchen {

std::atomic<int> ready{0};
std::atomic<unsigned long> turns{0};
std::mutex pantry;

[[gnu::noinline]] unsigned stir(unsigned spoon) {
  for (int i = 0; i < 1000; ++i) spoon = spoon * 1664525u + 1013904223u;
  return spoon;
}

[[gnu::noinline]] void stirForEver() {
  unsigned spoon = 1;
  for (;;) {
    spoon = stir(spoon);
    asm volatile("" : "+r"(spoon));
    turns.fetch_add(1, std::memory_order_relaxed);
  }
}

extern "C" [[gnu::noinline]] void stirInHandler(int) {
  stirForEver();
}

// The kernel does not let a thread be stopped while it waits for what it began with vfork.
[[gnu::noinline]] void waitForChild() {
  if (vfork() != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) pause();
}

[[gnu::noinline]] void churn() {
  for (;;) std::thread([] { stir(1); }).join();
}

struct Cook {
  std::string mode;

  [[gnu::noinline]] int descend(int depth) {
    if (depth > 0) {
      int below = descend(depth - 1);
      asm volatile("" : "+r"(below));  // no tail call, no loop
      return below + 1;
    }
    if (mode == "secret") prctl(PR_SET_DUMPABLE, 0);
    ready.fetch_add(1);
    if (mode == "wait") {
      int events = epoll_create1(EPOLL_CLOEXEC);
      epoll_event event;
      for (;;) epoll_wait(events, &event, 1, -1);
    }
    if (mode == "rest") std::lock_guard<std::mutex> lock(pantry);
    if (mode == "signal") {
      signal(SIGUSR1, stirInHandler);
      raise(SIGUSR1);
    }
    if (mode == "vfork") waitForChild();
    if (mode == "churn") churn();
    stirForEver();
    return 0;
  }
};

}  // namespace kitchen

namespace {

void serve(const std::string& path) {
#ifdef TARGET_IS_STATIC
  (void)path;
#else
  void* library = dlopen(path.c_str(), RTLD_NOW);
  if (library == nullptr) _exit(3);
  std::thread(reinterpret_cast<void (*)()>(dlsym(library, "serve"))).detach();
#endif
}

void obey(const std::string& line) {
  const std::string path = line.substr(line.find(' ') + 1);
  if (line.starts_with("serve ")) serve(path);
  if (line.starts_with("map ")) {
    int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE, file, 0) == MAP_FAILED) _exit(3);
    close(file);
  }
  if (line.starts_with("exec ")) execl(path.c_str(), path.c_str(), "1000", nullptr);
  if (line == "quit") {
    std::puts("turns 0");
    std::fflush(stdout);
    pthread_exit(nullptr);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  std::lock_guard<std::mutex> lock(kitchen::pantry);
  const int threads = std::atoi(arguments[2]);
  for (int i = 0; i < threads; ++i) {
    std::thread thread([=] { kitchen::Cook{arguments[1]}.descend(std::atoi(arguments[3])); });
    pthread_setname_np(thread.native_handle(), ("cook " + std::to_string(i)).c_str());
    thread.detach();
  }
  while (kitchen::ready.load() < threads) usleep(100);
  std::puts("ready");
  std::fflush(stdout);
  for (char line[4096]; std::fgets(line, sizeof line, stdin) != nullptr;) {
    line[std::strcspn(line, "\n")] = '\0';
    obey(line);
    std::printf("turns %lu\n", kitchen::turns.load());
    std::fflush(stdout);
  }
  _exit(0);
}
