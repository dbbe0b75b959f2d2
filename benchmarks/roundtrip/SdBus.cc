// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// sd-bus peer to peer. With a hop, the caller sends and a thread of the connection reads, both
// under a lock, because an sd-bus connection belongs to one thread at a time.

#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/FileDescriptor.h"
#include "roundtrip/Contender.h"
#include "roundtrip/SdBusParts.h"
#include "roundtrip/Sockets.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

void serve(const std::string& path) {
  FileDescriptor connection = firstConnection(path);
  Bus bus = newBus();
  check(sd_bus_set_fd(bus.get(), connection.get(), connection.get()));
  sd_id128_t id;
  check(sd_id128_randomize(&id));
  check(sd_bus_set_server(bus.get(), 1, id));
  check(sd_bus_start(bus.get()));
  (void)connection.release();
  serveBarrier(bus.get());
}

Bus connectBus(const std::string& path) {
  FileDescriptor connection = connectedSocket(path);
  Bus bus = newBus();
  check(sd_bus_set_fd(bus.get(), connection.get(), connection.get()));
  check(sd_bus_start(bus.get()));
  (void)connection.release();
  return bus;
}

class HoppingCaller : public Caller {
 public:
  explicit HoppingCaller(const std::string& path)
      : bus_(connectBus(path)), stop_(::eventfd(0, EFD_CLOEXEC)) {
    // The first call also carries the handshake; from here on the reader does the reading.
    callBarrier(bus_.get(), nullptr);
    reader_ = std::thread([this] { readAnswers(); });
  }
  ~HoppingCaller() override {
    eventfd_write(stop_.get(), 1);
    reader_.join();
  }
  void call() override {
    std::unique_lock lock(mutex_);
    sd_bus_message* message = nullptr;
    check(
        sd_bus_message_new_method_call(bus_.get(), &message, nullptr, kPath, kInterface, kMethod));
    check(sd_bus_call_async(bus_.get(), nullptr, message, answered, this, 0));
    sd_bus_message_unref(message);
    check(sd_bus_flush(bus_.get()));
    changed_.wait(lock, [this] { return answered_; });
    answered_ = false;
  }

 private:
  static int answered(sd_bus_message*, void* self, sd_bus_error*) {
    static_cast<HoppingCaller*>(self)->answered_ = true;
    return 1;
  }

  void readAnswers() {
    pollfd descriptors[] = {{sd_bus_get_fd(bus_.get()), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
    while (descriptors[1].revents == 0) {
      ::poll(descriptors, 2, -1);
      {
        std::lock_guard lock(mutex_);
        while (sd_bus_process(bus_.get(), nullptr) > 0) {
        }
      }
      changed_.notify_one();
    }
  }

  Bus bus_;
  FileDescriptor stop_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool answered_ = false;
  std::thread reader_;
};

}  // namespace

Contender sdBus() {
  return {"SdBus", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<SdBusCaller>(connectBus(path), "");
          }};
}

Contender sdBusWithHop() {
  return {"SdBusWithHop", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<HoppingCaller>(path);
          }};
}

}  // namespace hoist::bench
