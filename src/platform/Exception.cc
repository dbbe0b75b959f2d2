// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Exception.h"

#include <execinfo.h>

#include "values/ClassRegistry.h"

namespace hoist {
namespace {

// Deeper stacks are cut: the outermost frames of a thread say little.
constexpr int kMaximumFrames = 128;

}  // namespace

std::string ExceptionState::description() const {
  return reason.value_or(name);
}

void ExceptionState::encodeWithCoder(Encoder& encoder) const {
  // The keys of the original platform's archives of exceptions.
  encoder.encodeObject("NS.name", Value(name));
  encoder.encodeObject("NS.reason", reason ? std::optional<Value>(*reason) : std::nullopt);
  encoder.encodeObject("NS.userinfo", Value(userInfo));
}

void ExceptionState::decodeFields(Decoder& decoder) {
  AllowedClasses classes = propertyListClasses();
  classes.insert({"NSException", "NSError", "NSNull"});
  name = decoder.decodeString("NS.name").value_or("");
  reason = decoder.decodeString("NS.reason");
  auto details = decoder.decodeObject("NS.userinfo", classes);
  if (details && details->dictionary()) userInfo = *details->dictionary();
}

Exception::Exception(std::string name, std::optional<std::string> reason, Dictionary userInfo)
    : state_(std::make_shared<ExceptionState>()) {
  state_->name = std::move(name);
  state_->reason = std::move(reason);
  state_->userInfo = std::move(userInfo);
}

const char* Exception::what() const noexcept {
  try {
    text_ = std::make_shared<const std::string>(name() + ": " + reason().value_or("(null)"));
    return text_->c_str();
  } catch (...) {
    return "exception";
  }
}

void Exception::raise() const {
  if (state_->callStackReturnAddresses.empty())
    state_->callStackReturnAddresses = hoist::callStackReturnAddresses(1);
  throwSelf();
  __builtin_unreachable();
}

void Exception::registerClass() {
  ClassRegistry::shared().add({.name = "NSException",
                               .superclass = "",
                               .decode = [](Decoder& decoder) -> Ref<Object> {
                                 auto state = make<ExceptionState>();
                                 state->decodeFields(decoder);
                                 return state;
                               },
                               .create = nullptr,
                               .classObject = nullptr});
}

std::vector<std::uintptr_t> callStackReturnAddresses(unsigned skippedFrames) {
  void* frames[kMaximumFrames];
  int count = ::backtrace(frames, kMaximumFrames);
  std::vector<std::uintptr_t> addresses;
  // This function's own frame is skipped as well.
  for (int frame = static_cast<int>(skippedFrames) + 1; frame < count; ++frame) {
    addresses.push_back(reinterpret_cast<std::uintptr_t>(frames[frame]));
  }
  return addresses;
}

}  // namespace hoist
