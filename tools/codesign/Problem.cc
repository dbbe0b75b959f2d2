// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Problem.h"

#include "codesign/PathText.h"

namespace hoist::codesign {

Problem::Problem(std::string_view path, std::string_view text)
    : runtime_error(textOfPath(path).append(": ").append(text)) {}

}  // namespace hoist::codesign
