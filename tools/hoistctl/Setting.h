// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "platform/xpc/Protocol.h"
#include "platform/xpc/Proxy.h"

namespace hoist::ctl {

// One property of a command and the value that it is to have, as a person writes them:
// PROPERTY=VALUE, where the property "recallPath" is what the operation "setRecallPath:" of the
// command's protocol sets, and "targetPath" what "addTargetPath:" adds to. The operation's argument
// says how the value is written: yes or no, a number, text, texts with commas between them, a date
// (2024-03-05 or 2024-03-05T13:07:09Z), the path of a file to write to ("-" is the standard
// output), a path, a JSON object. An argument that may be nil is nil without a value.
class Setting {
 public:
  // Throws CommandError (Usage) for a property that the protocol does not know and for a value that
  // its argument cannot be, or cannot be made.
  Setting(const std::string& text, const xpc::Protocol& protocol);

  const std::string& property() const { return property_; }
  void send(const xpc::Proxy& proxy) const { proxy.send(*method_, write_); }

 private:
  std::string property_;
  const xpc::Method* method_;
  std::function<void(xpc::ArgumentWriter&)> write_;
};

}  // namespace hoist::ctl
