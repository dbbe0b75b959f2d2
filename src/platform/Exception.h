// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "values/Value.h"

namespace hoist {

class Decoder;

// What an exception carries. Filled by the thread that makes it, before it is raised; not locked.
struct ExceptionState : Object {
  std::string name;
  std::optional<std::string> reason;
  Dictionary userInfo;
  // Innermost first; empty until the exception has been raised.
  std::vector<std::uintptr_t> callStackReturnAddresses;

  std::string className() const override { return "NSException"; }
  std::string description() const override;
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override;
  // Reads back what encodeWithCoder wrote. Throws DecodeError.
  void decodeFields(Decoder& decoder);
};

// The platform's exception: a handle to shared state, so that the one that is caught is the one
// that was raised. Copying copies the handle; identity is that of the state.
class Exception : public std::exception {
 public:
  static constexpr const char* kGenericException = "NSGenericException";
  static constexpr const char* kInvalidArgumentException = "NSInvalidArgumentException";

  Exception(std::string name, std::optional<std::string> reason, Dictionary userInfo = {});
  explicit Exception(Ref<ExceptionState> state) : state_(std::move(state)) {}

  const std::string& name() const { return state_->name; }
  const std::optional<std::string>& reason() const { return state_->reason; }
  const Dictionary& userInfo() const { return state_->userInfo; }
  const std::vector<std::uintptr_t>& callStackReturnAddresses() const {
    return state_->callStackReturnAddresses;
  }
  std::string className() const { return state_->className(); }
  std::string description() const { return state_->description(); }
  const Ref<ExceptionState>& state() const { return state_; }
  bool isSameAs(const Exception& other) const { return state_ == other.state_; }

  // "NAME: REASON"; valid as long as some handle to the state lives and unchanged.
  const char* what() const noexcept override;

  // Records the call stack, unless it was raised before, and throws this very exception as the type
  // that it is.
  [[noreturn]] void raise() const;

  // Makes the class known to the class registry.
  static void registerClass();

 protected:
  // Throws a copy of the handle with the static type of the subclass.
  [[noreturn]] virtual void throwSelf() const { throw *this; }

 private:
  Ref<ExceptionState> state_;
  mutable std::shared_ptr<const std::string> text_;
};

// The return addresses of the caller's stack, innermost first, without the given number of
// innermost frames.
std::vector<std::uintptr_t> callStackReturnAddresses(unsigned skippedFrames = 0);

}  // namespace hoist
