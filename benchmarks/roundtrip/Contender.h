// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace hoist::bench {

// The calling end of a connection.
class Caller {
 public:
  virtual ~Caller() = default;
  // One round trip: the call is sent, the answer received. Throws when there is none.
  virtual void call() = 0;
};

// One way to call another process.
struct Contender {
  const char* name;
  // Serves at this socket path, in a process of its own, until that is killed. Calls
  // PeerProcess::sayReady() when it can be called.
  void (*serve)(const std::string& path);
  std::unique_ptr<Caller> (*connect)(const std::string& path);
};

const std::vector<Contender>& contenders();

// One file each.
Contender rawSocket();
Contender rawSocketWithHop();
Contender sdBus();
Contender sdBusWithHop();
Contender sdBusThroughDaemon();
Contender gdbus();
Contender grpc();
Contender capnProto();
Contender hoistConnection();

}  // namespace hoist::bench
