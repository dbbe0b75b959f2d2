// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/LogFormat.h"

namespace hoist {

Ref<LogLineIdentifier> logFormatArguments(Classification classification,
                                          const Ref<LogLineIdentifier>& parent,
                                          fmt::string_view format, fmt::format_args arguments) {
  return Logger::log(classification, parent, [&] { return fmt::vformat(format, arguments); });
}

}  // namespace hoist
