// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string_view>

namespace hoist {
class Exception;
}

namespace hoist::platform {

// How bad a piece of trouble is, in the logger's classifications: debug 9, caution 3, warning 4,
// failure 5.
enum class Severity { Caution = 3, Warning = 4, Failure = 5, Debug = 9 };

// The platform names no product class, so it reports through a hook that the logger installs.
// Without one, the report goes to standard error. Safe from any thread.
using TroubleHook = std::function<void(Severity, std::string_view message)>;
void setTroubleHook(TroubleHook function);
void reportTrouble(Severity severity, std::string_view message);

// The same for an exception that ended what was being done there, with all that it carries. Without
// a hook of its own it is reported as the text "PLACE raised: NAME: REASON".
using ExceptionHook = std::function<void(std::string_view place, const Exception& exception)>;
void setExceptionHook(ExceptionHook function);

// Runs the code and reports, instead of passing on, whatever it throws: the boundary of threads,
// posted blocks and callbacks of C libraries. The place names what was being done ("a posted
// block").
void contain(std::string_view place, const std::function<void()>& code) noexcept;

}  // namespace hoist::platform
