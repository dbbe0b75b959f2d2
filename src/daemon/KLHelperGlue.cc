// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/KLHelperGlue.h"

#include <fmt/format.h>

#include "logging/Logger.h"

namespace hoist {

KLHelperGlue& KLHelperGlue::shared() {
  static auto& glue = *new KLHelperGlue;
  return glue;
}

std::optional<std::string> KLHelperGlue::helperCouplingServiceName() const {
  MutexLock lock(nameMutex_);
  return serviceName_;
}

void KLHelperGlue::setHelperCouplingServiceName(std::optional<std::string> name) {
  MutexLock lock(nameMutex_);
  serviceName_ = std::move(name);
}

void KLHelperGlue::prepareToConnectWithHelper(const std::string& serviceName) {
  lock_.lockWhenCondition(kIdle);
  pendingHelper_ = serviceName;
  lock_.unlockWithCondition(kWaiting);
}

std::optional<xpc::Endpoint> KLHelperGlue::endpointForLaunchedHelper(
    const std::string& serviceName) {
  std::optional<xpc::Endpoint> endpoint;
  if (lock_.lockWhenCondition(kCoupled, Clock::instant() + kCouplingLimit)) {
    endpoint = endpoint_;
  } else {
    Logger::log(classification::Debug, [&] {
      return fmt::format("{} endpoint coupling for command {} failed; resetting",
                         "+[KLConnectionVendor(KLHelperGlue) endpointForLaunchedHelper:]",
                         serviceName);
    });
    lock_.lock();
  }
  clear();
  lock_.unlockWithCondition(kIdle);
  return endpoint;
}

void KLHelperGlue::abandonConnectionWithHelper(const std::optional<std::string>& serviceName) {
  Logger::log(classification::Debug, [&] {
    return fmt::format("{} command {}",
                       "+[KLConnectionVendor(KLHelperGlue) abandonConnectionWithHelper:]",
                       describe(serviceName));
  });
  lock_.lock();
  if (!pendingHelper_ || pendingHelper_ != serviceName) {
    lock_.unlock();
    return;
  }
  clear();
  lock_.unlockWithCondition(kIdle);
}

void KLHelperGlue::connectWithEndpoint(const xpc::Endpoint& endpoint, const std::string& commandID,
                                       const xpc::Reply<>& reply, bool isExpected) {
  lock_.lock();
  if (lock_.condition() != kWaiting || !isExpected) {
    Logger::log(classification::Debug, [&] {
      return fmt::format(
          "{} unexpected helper connection response from command {}; not in 'waiting' state",
          "-[NSObject(KLHelperCoupling) connectWithEndpoint:forCommandID:withReply:]", commandID);
    });
    lock_.unlock();
    return;
  }
  endpoint_ = endpoint;
  lock_.unlockWithCondition(kCoupled);
  reply();
}

void KLHelperGlue::clear() {
  endpoint_.reset();
  pendingHelper_.reset();
}

}  // namespace hoist
