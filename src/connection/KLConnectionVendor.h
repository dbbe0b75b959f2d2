// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "platform/Mutex.h"
#include "platform/xpc/Listener.h"
#include "values/Object.h"

namespace hoist {

// Owns a listener, is its delegate, hands out its endpoint and tears it down. By itself it accepts
// no connection: only subclasses serve. Safe from any thread.
class KLConnectionVendor : public Object, public xpc::ListenerDelegate {
 public:
  // Becomes the listener's delegate; does not resume it.
  static Ref<KLConnectionVendor> initWithListener(const Ref<xpc::Listener>& listener);
  ~KLConnectionVendor() override;

  // Nothing after shutdown.
  std::optional<xpc::Endpoint> endpoint() const;

  // Withdraws what was published, then ends the listener; connections that were accepted live on. A
  // second call does nothing more.
  void shutdown();

  bool shouldAcceptNewConnection(xpc::Listener& listener,
                                 const Ref<xpc::Connection>& connection) override;

  std::string className() const override { return "KLConnectionVendor"; }

 protected:
  explicit KLConnectionVendor(Ref<xpc::Listener> listener) : listener_(std::move(listener)) {}
  // Null once the vendor is shut down.
  Ref<xpc::Listener> listener() const;
  // Hook of a subclass that publishes its endpoint under a name: withdraws it. Called first by
  // shutdown, not by the destructor, when the subclass is gone already.
  virtual void redact() {}

 private:
  void endListener();

  mutable Mutex mutex_;
  Ref<xpc::Listener> listener_ GUARDED_BY(mutex_);
};

}  // namespace hoist
