// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Error.h"

#include <cstring>
#include <functional>

#include "values/ClassRegistry.h"

namespace hoist {
namespace {

std::optional<std::string> textForKey(const Dictionary& userInfo, const char* key) {
  auto found = userInfo.find(key);
  if (found == userInfo.end() || !found->second.isString()) return std::nullopt;
  return *found->second.string();
}

}  // namespace

Error::Error(std::string domain, std::int64_t code, Dictionary userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

Ref<Error> Error::posix(int number, std::optional<std::string> path) {
  char buffer[128];
  Dictionary userInfo{{kLocalizedDescription, Value(strerror_r(number, buffer, sizeof buffer))}};
  if (path) userInfo.emplace(kFilePath, *path);
  return make<Error>(kPOSIXDomain, number, std::move(userInfo));
}

std::optional<std::string> Error::localizedDescription() const {
  return textForKey(userInfo_, kLocalizedDescription);
}
std::optional<std::string> Error::localizedFailureReason() const {
  return textForKey(userInfo_, kLocalizedFailureReason);
}
std::optional<std::string> Error::failingURLString() const {
  return textForKey(userInfo_, kFailingURLString);
}

std::string Error::description() const {
  std::string text = "Error Domain=" + domain_ + " Code=" + std::to_string(code_);
  if (auto words = localizedDescription()) text += " \"" + *words + "\"";
  return text;
}

bool Error::isEqual(const Object& other) const {
  auto error = dynamic_cast<const Error*>(&other);
  return error && error->domain_ == domain_ && error->code_ == code_ &&
         error->userInfo_ == userInfo_;
}

std::size_t Error::hash() const {
  return std::hash<std::string>()(domain_) ^ static_cast<std::size_t>(code_);
}

void Error::encodeWithCoder(Encoder& encoder) const {
  // The keys of the original platform's archives of errors.
  encoder.encodeObject("NSDomain", Value(domain_));
  encoder.encodeInteger("NSCode", code_);
  encoder.encodeObject("NSUserInfo", Value(userInfo_));
}

void Error::registerClass() {
  ClassRegistry::shared().add(
      {.name = "NSError",
       .superclass = "",
       .decode = [](Decoder& decoder) -> Ref<Object> {
         auto domain = decoder.decodeString("NSDomain");
         auto code = decoder.decodeInteger("NSCode");
         // Errors hold the errors and exceptions that caused them.
         AllowedClasses classes = propertyListClasses();
         classes.insert({"NSException", "NSError", "NSNull"});
         auto userInfo = decoder.decodeObject("NSUserInfo", classes);
         if (!domain) throw DecodeError("an error without a domain");
         const Dictionary* entries = userInfo ? userInfo->dictionary() : nullptr;
         return make<Error>(*domain, code, entries ? *entries : Dictionary());
       },
       .create = nullptr,
       .classObject = nullptr});
}

}  // namespace hoist
