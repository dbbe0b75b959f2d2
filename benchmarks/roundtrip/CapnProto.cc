// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Cap'n Proto's two-party RPC over a Unix socket.

#include <capnp/ez-rpc.h>

#include "barrier.capnp.h"
#include "roundtrip/Contender.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

class Service final : public Barrier::Server {
  kj::Promise<void> call(CallContext) override { return kj::READY_NOW; }
};

void serve(const std::string& path) {
  capnp::EzRpcServer server(kj::heap<Service>(), kj::StringPtr("unix:" + path));
  // It listens once its loop has run.
  server.getPort().wait(server.getWaitScope());
  PeerProcess::sayReady();
  kj::NEVER_DONE.wait(server.getWaitScope());
}

class CapnProtoCaller : public Caller {
 public:
  explicit CapnProtoCaller(const std::string& path)
      : client_("unix:" + path), barrier_(client_.getMain<Barrier>()) {}
  // Cap'n Proto's own destructors may throw.
  ~CapnProtoCaller() noexcept override = default;
  void call() override { barrier_.callRequest().send().wait(client_.getWaitScope()); }

 private:
  capnp::EzRpcClient client_;
  Barrier::Client barrier_;
};

}  // namespace

Contender capnProto() {
  return {"CapnProto", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<CapnProtoCaller>(path);
          }};
}

}  // namespace hoist::bench
