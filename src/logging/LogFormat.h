// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fmt/core.h>

#include "logging/Logger.h"

// Logging with a format, for sources: it stands apart so that Logger.h does not bring {fmt} along.
// The text is made only if the line is written.

namespace hoist {

// log:inLine:format:args:
Ref<LogLineIdentifier> logFormatArguments(Classification classification,
                                          const Ref<LogLineIdentifier>& parent,
                                          fmt::string_view format, fmt::format_args arguments);

// log:format:
template <class... Arguments>
Ref<LogLineIdentifier> logFormat(Classification classification,
                                 fmt::format_string<Arguments...> format,
                                 Arguments&&... arguments) {
  return logFormatArguments(classification, nullptr, format, fmt::make_format_args(arguments...));
}

// log:inLine:format:
template <class... Arguments>
Ref<LogLineIdentifier> logFormat(Classification classification,
                                 const Ref<LogLineIdentifier>& parent,
                                 fmt::format_string<Arguments...> format,
                                 Arguments&&... arguments) {
  return logFormatArguments(classification, parent, format, fmt::make_format_args(arguments...));
}

}  // namespace hoist
