// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// gRPC over a Unix socket: its synchronous server and a blocking stub.

#include <grpcpp/grpcpp.h>

#include <stdexcept>

#include "barrier.grpc.pb.h"
#include "roundtrip/Contender.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

class Service final : public Barrier::Service {
  ::grpc::Status Call(::grpc::ServerContext*, const Nothing*, Nothing*) override {
    return ::grpc::Status::OK;
  }
};

void serve(const std::string& path) {
  Service service;
  ::grpc::ServerBuilder builder;
  builder.AddListeningPort("unix:" + path, ::grpc::InsecureServerCredentials());
  builder.RegisterService(&service);
  const std::unique_ptr<::grpc::Server> server = builder.BuildAndStart();
  if (!server) throw std::runtime_error("gRPC does not listen");
  PeerProcess::sayReady();
  server->Wait();
}

class GrpcCaller : public Caller {
 public:
  explicit GrpcCaller(const std::string& path)
      : stub_(Barrier::NewStub(
            ::grpc::CreateChannel("unix:" + path, ::grpc::InsecureChannelCredentials()))) {}
  void call() override {
    ::grpc::ClientContext context;
    Nothing answer;
    const ::grpc::Status status = stub_->Call(&context, Nothing(), &answer);
    if (!status.ok()) throw std::runtime_error(status.error_message());
  }

 private:
  std::unique_ptr<Barrier::Stub> stub_;
};

}  // namespace

Contender grpc() {
  return {"Grpc", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<GrpcCaller>(path);
          }};
}

}  // namespace hoist::bench
