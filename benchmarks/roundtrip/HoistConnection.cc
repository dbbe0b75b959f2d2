// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The hoist's own connection: its barrier, sent by the caller, answered on the connection's thread.

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "connection/protocols/KLComponentMessaging.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/ServiceSocket.h"
#include "roundtrip/Contender.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

// The socket's path is that of a service in a runtime directory of its own.
std::string useRuntimeDirectoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  xpc::setRuntimeDirectory(path.substr(0, slash));
  return path.substr(slash + 1);
}

class Service : public KLComponentMessaging {
  void barrierWithCompletion(xpc::Reply<> completion) override { completion(); }
};

class Server : public xpc::ListenerDelegate {
  bool shouldAcceptNewConnection(xpc::Listener&, const Ref<xpc::Connection>& connection) override {
    connection->setExportedInterface(
        xpc::Interface::interfaceWithProtocol(klComponentMessagingProtocol()));
    connection->setExportedObject(make<Service>());
    connection->resume();
    return true;
  }
};

void serve(const std::string& path) {
  const auto server = make<Server>();
  const auto listener = xpc::Listener::initWithMachServiceName(useRuntimeDirectoryOf(path));
  listener->setDelegate(server);
  listener->resume();
  PeerProcess::sayReady();
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));  // its threads serve
}

class HoistCaller : public Caller {
 public:
  explicit HoistCaller(const std::string& path)
      : connection_(xpc::Connection::initWithMachServiceName(useRuntimeDirectoryOf(path))) {
    connection_->setRemoteObjectInterface(
        xpc::Interface::interfaceWithProtocol(klComponentMessagingProtocol()));
    connection_->resume();
    proxy_ =
        connection_->remoteObjectProxyWithErrorHandler([this](const Ref<Error>&) { wake(gone_); });
  }
  void call() override {
    proxy_->send<&KLComponentMessaging::barrierWithCompletion>([this] { wake(answered_); });
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return answered_ || gone_; });
    if (gone_) throw std::runtime_error("the peer is gone");
    answered_ = false;
  }

 private:
  void wake(bool& flag) {
    {
      std::lock_guard lock(mutex_);
      flag = true;
    }
    changed_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool answered_ = false;
  bool gone_ = false;
  Ref<xpc::Connection> connection_;
  Ref<xpc::Proxy> proxy_;
};

}  // namespace

Contender hoistConnection() {
  return {"Hoist", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<HoistCaller>(path);
          }};
}

}  // namespace hoist::bench
