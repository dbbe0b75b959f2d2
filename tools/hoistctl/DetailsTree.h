// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "hoistctl/Output.h"
#include "platform/Exception.h"
#include "values/Value.h"

namespace hoist::ctl {

// An exception for people: its name and reason, its explanation, and a tree of its details with
// whatever they hold inside. Hidden details, whose keys begin with a dot, are left out. Ends with a
// line feed.
//
//   <IO> cannot copy item
//   ├─ Cause
//   │  └─ Device    /dev/sdz1
//   └─ POSIXErr     28
std::string detailsTree(const Exception& exception);

// The same for programs, hidden details included.
Json exceptionAsJson(const Exception& exception);

// A dictionary from a JSON object. Throws CommandError (Usage) for JSON that is none.
Dictionary dictionaryFromJson(const std::string& text);

}  // namespace hoist::ctl
