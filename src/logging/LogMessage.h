// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <type_traits>

namespace hoist {

// The text of a log line, borrowed for the call: either a text, or a function that makes it and is
// called only if the line is written. A dropped line so costs no formatting:
//
//   Logger::log(classification::Debug, [&] { return describeAtLength(path); });
class LogMessage {
 public:
  LogMessage(std::string_view text) : text_(text) {}
  LogMessage(const std::string& text) : text_(text) {}
  LogMessage(const char* text) : text_(text) {}

  template <class Make>
  requires std::is_invocable_r_v<std::string, const Make&> LogMessage(const Make& make)
      : context_(&make), make_([](const void* context) -> std::string {
          return (*static_cast<const Make*>(context))();
        }) {}

  // The text, kept in the storage if it had to be made.
  std::string_view text(std::string& storage) const {
    return make_ ? std::string_view(storage = make_(context_)) : text_;
  }

 private:
  std::string_view text_;
  const void* context_ = nullptr;
  std::string (*make_)(const void* context) = nullptr;
};

}  // namespace hoist
