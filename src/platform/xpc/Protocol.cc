// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Protocol.h"

#include <algorithm>
#include <stdexcept>

#include "values/product.h"

namespace hoist::xpc {
namespace {

std::string joinedSignature(const std::vector<Argument>& arguments) {
  std::string signature;
  for (const auto& argument : arguments) signature += argument.signature;
  return signature;
}

// Adds the protocol and what it adopts, unless they are there.
void collect(const Protocol& protocol, std::vector<const Protocol*>& found) {
  if (std::find(found.begin(), found.end(), &protocol) != found.end()) return;
  found.push_back(&protocol);
  for (const Protocol* adopted : protocol.adopted()) collect(*adopted, found);
}

template <class Matches>
const Method* findMethod(const Protocol& protocol, Matches matches) {
  for (const Method& method : protocol.methods()) {
    if (matches(method)) return &method;
  }
  for (const Protocol* adopted : protocol.adopted()) {
    if (const Method* method = findMethod(*adopted, matches)) return method;
  }
  return nullptr;
}

}  // namespace

ReplyTarget::~ReplyTarget() = default;

Protocol::Protocol(std::string name)
    : name_(std::move(name)),
      interfaceName_(std::string(product::kIdentifierPrefix) + "." + name_) {}

Protocol&& Protocol::adopts(const Protocol& protocol) && {
  adopted_.push_back(&protocol);
  return std::move(*this);
}

void Protocol::requireCount(std::string_view selector, std::size_t types, std::size_t names) {
  if (types != names) {
    throw std::logic_error(std::string(selector) + " is declared with " + std::to_string(names) +
                           " names for " + std::to_string(types) + " arguments or values");
  }
}

void Protocol::add(Method method, bool optional) {
  const auto& selector = method.selector;
  auto colons = static_cast<std::size_t>(std::count(selector.begin(), selector.end(), ':'));
  requireCount(selector, method.arguments.size() + (method.hasReply ? 1 : 0), colons);
  method.optional = optional;
  method.interfaceName = interfaceName_;
  method.member = selector;
  std::replace(method.member.begin(), method.member.end(), ':', '_');
  method.argumentSignature = joinedSignature(method.arguments);
  method.resultSignature = joinedSignature(method.results);
  methods_.push_back(std::move(method));
}

std::vector<const Protocol*> Protocol::closure() const {
  std::vector<const Protocol*> found;
  collect(*this, found);
  return found;
}

bool Protocol::conformsTo(const Protocol& other) const {
  return this == &other || std::any_of(adopted_.begin(), adopted_.end(),
                                       [&](const Protocol* one) { return one->conformsTo(other); });
}

const Method* Protocol::methodWithSelector(std::string_view selector) const {
  return findMethod(*this, [&](const Method& method) { return method.selector == selector; });
}

const Method* Protocol::methodWithMember(std::string_view member) const {
  return findMethod(*this, [&](const Method& method) { return method.member == member; });
}

const Method* Protocol::methodWithKey(const void* key) const {
  return findMethod(*this, [&](const Method& method) { return method.key == key; });
}

const Protocol* Protocol::protocolWithInterfaceName(std::string_view interfaceName) const {
  if (interfaceName == interfaceName_) return this;
  for (const Protocol* adopted : adopted_) {
    if (auto found = adopted->protocolWithInterfaceName(interfaceName)) return found;
  }
  return nullptr;
}

const Method* Protocol::ownMethodWithMember(std::string_view member) const {
  auto found = std::find_if(methods_.begin(), methods_.end(),
                            [&](const Method& method) { return method.member == member; });
  return found == methods_.end() ? nullptr : &*found;
}

}  // namespace hoist::xpc
