// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/KLConnectionVendor.h"

namespace hoist {

Ref<KLConnectionVendor> KLConnectionVendor::initWithListener(const Ref<xpc::Listener>& listener) {
  Ref<KLConnectionVendor> vendor(new KLConnectionVendor(listener));
  listener->setDelegate(vendor);
  return vendor;
}

KLConnectionVendor::~KLConnectionVendor() {
  endListener();
}

std::optional<xpc::Endpoint> KLConnectionVendor::endpoint() const {
  auto live = listener();
  return live ? std::optional(live->endpoint()) : std::nullopt;
}

void KLConnectionVendor::shutdown() {
  redact();
  endListener();
}

bool KLConnectionVendor::shouldAcceptNewConnection(xpc::Listener&, const Ref<xpc::Connection>&) {
  return false;
}

Ref<xpc::Listener> KLConnectionVendor::listener() const {
  MutexLock lock(mutex_);
  return listener_;
}

void KLConnectionVendor::endListener() {
  Ref<xpc::Listener> listener;
  {
    MutexLock lock(mutex_);
    listener.swap(listener_);
  }
  if (listener) listener->invalidate();
}

}  // namespace hoist
