// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The limits: 64 bytes there and back with nothing in between, and the same where the answer is
// read by a thread of its own, which then wakes the caller, as a connection with a queue has to.

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "platform/FileDescriptor.h"
#include "roundtrip/Contender.h"
#include "roundtrip/Sockets.h"

namespace hoist::bench {
namespace {

using Message = std::array<char, 64>;

void writeMessage(int fd, const Message& message) {
  if (::write(fd, message.data(), message.size()) != static_cast<ssize_t>(message.size()))
    throw std::runtime_error("the peer is gone");
}

bool readMessage(int fd, Message& message) {
  for (std::size_t have = 0; have < message.size();) {
    const ssize_t count = ::read(fd, message.data() + have, message.size() - have);
    if (count <= 0) return false;
    have += static_cast<std::size_t>(count);
  }
  return true;
}

void serve(const std::string& path) {
  FileDescriptor connection = firstConnection(path);
  Message message = {};
  while (readMessage(connection.get(), message)) writeMessage(connection.get(), message);
}

class RawCaller : public Caller {
 public:
  explicit RawCaller(const std::string& path) : socket_(connectedSocket(path)) {}
  void call() override {
    writeMessage(socket_.get(), message_);
    if (!readMessage(socket_.get(), message_)) throw std::runtime_error("the peer is gone");
  }

 private:
  FileDescriptor socket_;
  Message message_ = {};
};

class HoppingCaller : public Caller {
 public:
  explicit HoppingCaller(const std::string& path)
      : socket_(connectedSocket(path)), reader_([this] { readAnswers(); }) {}
  ~HoppingCaller() override {
    ::shutdown(socket_.get(), SHUT_RDWR);
    reader_.join();
  }
  void call() override {
    writeMessage(socket_.get(), message_);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return answered_ || gone_; });
    if (gone_) throw std::runtime_error("the peer is gone");
    answered_ = false;
  }

 private:
  void readAnswers() {
    Message message = {};
    bool alive = true;
    while (alive) {
      alive = readMessage(socket_.get(), message);
      {
        std::lock_guard lock(mutex_);
        (alive ? answered_ : gone_) = true;
      }
      changed_.notify_one();
    }
  }

  FileDescriptor socket_;
  Message message_ = {};
  std::mutex mutex_;
  std::condition_variable changed_;
  bool answered_ = false;
  bool gone_ = false;
  std::thread reader_;
};

}  // namespace

Contender rawSocket() {
  return {"RawSocket", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<RawCaller>(path);
          }};
}

Contender rawSocketWithHop() {
  return {"RawSocketWithHop", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<HoppingCaller>(path);
          }};
}

}  // namespace hoist::bench
