// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as a keyed archive and as an exception. Whatever comes of them can be described,
// compared and archived again; whatever is refused is refused with the invalid-argument exception.
#include <cstdlib>
#include <span>
#include <string_view>

#include "exceptions/ExceptionTransport.h"
#include "logging/Logger.h"
#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "values/Error.h"

namespace {

using namespace hoist;

class Quiet : public Logger {
 public:
  bool writesClassification(Classification) const override { return false; }
  std::optional<std::string> formatMessage(std::string_view, const LogLineIdentifier&,
                                           Classification, std::string_view) override {
    return std::nullopt;
  }
};

template <class Code>
void expectingInvalidArgument(Code&& code) {
  try {
    code();
  } catch (const Exception& exception) {
    if (exception.name() != Exception::kInvalidArgumentException) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  KLException::registerClass();
  Error::registerClass();
  Logger::setDefaultLogger(make<Quiet>());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const Data data{std::span(bytes, size)};
  expectingInvalidArgument([&] {
    auto value = KeyedUnarchiver::unarchiveObjectWithData(data);
    if (!value) return;
    value->description();
    if (!(*value == *value) && value->description().find("nan") == std::string::npos) std::abort();
    KeyedArchiver::archivedDataWithRootObject(*value);
  });
  expectingInvalidArgument([&] {
    auto exception = exceptionFromData(data);
    if (!exception) return;
    exception->description();
    if (!exceptionFromData(dataForException(*exception))) std::abort();
  });
  return 0;
}
