// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "platform/xpc/Protocol.h"
#include "values/Coder.h"
#include "values/Ref.h"

namespace hoist::xpc {

// A protocol together with the classes that its arguments may carry. Changed only before a
// connection that uses it is resumed; from then on safe to use from any thread.
class Interface {
 public:
  static Ref<Interface> interfaceWithProtocol(const Protocol& protocol) {
    return make<Interface>(protocol);
  }
  explicit Interface(const Protocol& protocol);

  const Protocol& protocol() const { return protocol_; }

  // setClasses:forSelector:argumentIndex:ofReply: — the classes that a decoder may make at that
  // argument, at any depth; subclasses are admitted. Throws std::logic_error for an argument that
  // does not exist.
  void setClasses(AllowedClasses classes, std::string_view selector, unsigned argumentIndex,
                  bool ofReply);
  // What was set; else the declared class of a coded object, the kinds of a property list and the
  // null marker for a dictionary.
  const AllowedClasses& classes(const Method& method, unsigned argumentIndex, bool ofReply) const;

 private:
  using Place = std::tuple<const Method*, unsigned, bool>;

  const Protocol& protocol_;
  std::map<Place, AllowedClasses> classes_;
};

}  // namespace hoist::xpc
