// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "values/Value.h"

namespace hoist {

// A failure as a value: domain, code and what is known about it. Immutable; safe to use from any
// thread.
class Error final : public Object {
 public:
  static constexpr const char* kPOSIXDomain = "NSPOSIXErrorDomain";
  static constexpr const char* kOSStatusDomain = "NSOSStatusErrorDomain";
  static constexpr const char* kCocoaDomain = "NSCocoaErrorDomain";
  static constexpr const char* kURLDomain = "NSURLErrorDomain";

  // Keys of the user-info.
  static constexpr const char* kLocalizedDescription = "NSLocalizedDescription";
  static constexpr const char* kLocalizedFailureReason = "NSLocalizedFailureReason";
  static constexpr const char* kFailingURLString = "NSErrorFailingURLStringKey";
  static constexpr const char* kFilePath = "NSFilePath";

  // Codes of NSCocoaErrorDomain for a connection that ended before the answer, that is not or no
  // longer valid, and whose peer answered with an error or something else than it should.
  static constexpr std::int64_t kConnectionInterrupted = 4097;
  static constexpr std::int64_t kConnectionInvalid = 4099;
  static constexpr std::int64_t kConnectionReplyInvalid = 4101;

  Error(std::string domain, std::int64_t code, Dictionary userInfo = {});
  // An error of the POSIX domain, described by the C library's text for the number; with the path
  // that it is about.
  static Ref<Error> posix(int number, std::optional<std::string> path = {});

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const Dictionary& userInfo() const { return userInfo_; }
  std::optional<std::string> localizedDescription() const;
  std::optional<std::string> localizedFailureReason() const;
  std::optional<std::string> failingURLString() const;

  std::string className() const override { return "NSError"; }
  std::string description() const override;
  bool isEqual(const Object& other) const override;
  std::size_t hash() const override;
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override;
  // Makes the class known to the class registry.
  static void registerClass();

 private:
  std::string domain_;
  std::int64_t code_;
  Dictionary userInfo_;
};

}  // namespace hoist
