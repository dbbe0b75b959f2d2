// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "exceptions/KLException.h"

namespace hoist {

// The exception that the code raises; a failure of the test if it raises none.
template <class Code>
KLException raisedBy(Code&& code) {
  try {
    code();
  } catch (const KLException& exception) {
    return exception;
  }
  ADD_FAILURE() << "nothing was raised";
  return KLException::exceptionWithName("", "");
}

// What a detail of it says; "(none)" if it has no such detail.
inline std::string detailOf(const Exception& exception, std::string_view key) {
  auto detail = exception.userInfo().find(key);
  return detail == exception.userInfo().end() ? "(none)" : detail->second.description();
}

}  // namespace hoist
