// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace hoist::codesign {

// Why a bundle is not valid or cannot be signed. what() is one line: the file it is about, escaped
// as in the seal, and what is wrong with it.
class Problem : public std::runtime_error {
 public:
  explicit Problem(std::string_view text) : runtime_error(std::string(text)) {}
  // The path is relative to the bundle.
  Problem(std::string_view path, std::string_view text);
};

}  // namespace hoist::codesign
