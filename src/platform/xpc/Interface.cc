// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Interface.h"

#include <stdexcept>

namespace hoist::xpc {
namespace {

const AllowedClasses& dictionaryClasses() {
  static const auto& classes = *[] {
    auto all = new AllowedClasses(propertyListClasses());
    all->insert("NSNull");
    return all;
  }();
  return classes;
}

}  // namespace

Interface::Interface(const Protocol& protocol) : protocol_(protocol) {
  auto declare = [this](const Method& method, const std::vector<Argument>& arguments,
                        bool ofReply) {
    for (unsigned index = 0; index < arguments.size(); ++index) {
      const auto& name = arguments[index].className;
      if (!name.empty()) classes_[{&method, index, ofReply}] = {name};
    }
  };
  for (const Protocol* one : protocol.closure()) {
    for (const Method& method : one->methods()) {
      declare(method, method.arguments, false);
      declare(method, method.results, true);
    }
  }
}

void Interface::setClasses(AllowedClasses classes, std::string_view selector,
                           unsigned argumentIndex, bool ofReply) {
  const Method* method = protocol_.methodWithSelector(selector);
  if (!method || argumentIndex >= (ofReply ? method->results : method->arguments).size()) {
    throw std::logic_error(protocol_.name() + " has no argument " + std::to_string(argumentIndex) +
                           " of " + std::string(selector));
  }
  classes_[{method, argumentIndex, ofReply}] = std::move(classes);
}

const AllowedClasses& Interface::classes(const Method& method, unsigned argumentIndex,
                                         bool ofReply) const {
  auto found = classes_.find({&method, argumentIndex, ofReply});
  return found == classes_.end() ? dictionaryClasses() : found->second;
}

}  // namespace hoist::xpc
