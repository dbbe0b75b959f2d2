// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/SampleRequest.h"

#include <optional>

#include "connection/protocols/TesselHoisting.h"
#include "hoistctl/HoistClient.h"
#include "platform/ConditionLock.h"

namespace hoist::ctl {

// Written by the connection's thread before the lock is released as replied.
struct SampleRequest::Answer {
  ConditionLock lock{0};
  std::optional<bool> finished;
  Ref<Error> error;
};

SampleRequest::SampleRequest(const std::string& serviceName, const std::vector<pid_t>& processes,
                             const std::vector<std::string>& reports)
    : answer_(make<Answer>()), connection_(xpc::Connection::initWithMachServiceName(serviceName)) {
  connection_->setRemoteObjectInterface(
      xpc::Interface::interfaceWithProtocol(tesselHoistingProtocol()));
  connection_->resume();
  auto proxy =
      connection_->remoteObjectProxyWithErrorHandler([answer = answer_](const Ref<Error>& error) {
        answer->error = error;
        answer->lock.messageReplied();
      });
  proxy->send<&TesselHoisting::asyncSample>(processes, reports, [answer = answer_](bool finished) {
    answer->finished = finished;
    answer->lock.messageReplied();
  });
}

bool SampleRequest::waitForAnswer(std::chrono::duration<double> time) {
  if (!answer_->lock.waitForMessageReplyBeforeInterval(time.count())) return false;
  if (answer_->finished) return true;
  const Error& error = *answer_->error;
  throw CommandError(
      error.code() == Error::kConnectionReplyInvalid ? Failure::Refused : Failure::Unreachable,
      error.localizedDescription().value_or(error.description()));
}

bool SampleRequest::finished() const {
  return answer_->finished.value_or(false);
}

}  // namespace hoist::ctl
