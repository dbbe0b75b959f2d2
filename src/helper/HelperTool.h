// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/xpc/Exportable.h"
#include "platform/xpc/Interface.h"
#include "platform/xpc/Listener.h"

namespace hoist {

// The four lines that the hoist writes to a helper's standard input.
struct HelperInvocation {
  std::string version;
  std::string serviceName;
  std::string commandName;
  std::vector<std::string> flags;

  // Reads the lines byte by byte, so that nothing behind them is taken. Nothing when the input ends
  // before the fourth line does, or a line is longer than the largest message could have made it.
  static std::optional<HelperInvocation> read(int input);
};

// A helper's side of its start: it answers the handshake, serves an object to whoever holds its
// endpoint, and hands that endpoint to the hoist. The functions are called once each, in the order
// in which they stand here.
class HelperTool {
 public:
  // Reads the invocation from the standard input; nothing, after having refused, when it is of
  // another version than the helper's.
  static std::optional<HelperTool> start(std::string_view version);

  const HelperInvocation& invocation() const { return invocation_; }

  // "NO\n" and the explanation, which ends when the process does.
  void refuse(std::string_view explanation);

  // Makes an anonymous listener that serves the object to every connection, once the helper has
  // accepted. Whenever the last of the connections has ended, the handler is called, on that
  // connection's thread.
  void serve(const Ref<xpc::Exportable>& object, const Ref<xpc::Interface>& interface,
             std::function<void()> lastClientLeft = nullptr);

  // Calls the service that is named in the environment back with the listener's endpoint; false
  // when there is none, it cannot be reached or it does not answer within 20 seconds. Blocks the
  // calling thread for as long. A client may connect from then on, and waits.
  bool couple();

  // "OK\n" on the standard output. From then on the output belongs to nobody: the hoist closes its
  // end once it has the endpoint. The hoist also moves the helper to the background when it reads
  // this, while its client still waits for the endpoint: on a busy machine it takes long to couple
  // after it.
  void accept();

  // Whether any client has connected so far. Safe from any thread.
  bool hasHadClients() const;

 private:
  explicit HelperTool(HelperInvocation invocation) : invocation_(std::move(invocation)) {}

  HelperInvocation invocation_;
  Ref<xpc::Listener> listener_;
  class OneObjectDelegate;
  Ref<OneObjectDelegate> delegate_;
};

}  // namespace hoist
