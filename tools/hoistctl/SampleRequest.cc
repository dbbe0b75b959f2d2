// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/SampleRequest.h"

#include <optional>

#include "connection/protocols/TesselHoisting.h"
#include "hoistctl/Ask.h"
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
    : answer_(make<Answer>()),
      connection_(KLServiceConnection::initWithServiceName(serviceName, tesselHoistingProtocol())) {
  auto proxy = connection_->serviceProxy();
  if (!proxy) throwFailure(*connection_, nullptr);
  // A round trip would be back long before the answer, so its failure has a handler of its own.
  auto request = proxy->connection()->remoteObjectProxyWithErrorHandler(
      [answer = answer_](const Ref<Error>& error) {
        answer->error = error;
        answer->lock.messageReplied();
      });
  request->send<&TesselHoisting::asyncSample>(processes, reports,
                                              [answer = answer_](bool finished) {
                                                answer->finished = finished;
                                                answer->lock.messageReplied();
                                              });
}

bool SampleRequest::waitForAnswer(std::chrono::duration<double> time) {
  if (!answer_->lock.waitForMessageReplyBeforeInterval(time.count())) return false;
  if (answer_->finished) return true;
  throwFailure(*connection_, answer_->error);
}

bool SampleRequest::finished() const {
  return answer_->finished.value_or(false);
}

}  // namespace hoist::ctl
