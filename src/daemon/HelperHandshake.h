// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/Clock.h"

namespace hoist {

// The exchange with a freshly started helper over its standard input and output: four ASCII lines
// go out, three bytes come back, and after a refusal some text. The functions are pure or work on
// borrowed descriptors; none of them blocks longer than it says.

// A helper that has not answered by then counts as one that has ended its output.
inline constexpr std::chrono::seconds kHandshakeLimit{60};
// Whether the text can stand in one of the four lines: ASCII without a line feed. Anything else
// would forge lines or reach the helper as something that nobody wrote.
bool fitsHandshakeLine(const std::string& text);

// The four lines: version, service name, command name, flags joined by commas, each ended by a line
// feed.
std::string handshakeLines(const std::string& serviceName, const std::string& commandName,
                           const std::vector<std::string>& flags);

// What the helper answered.
struct HandshakeAnswer {
  enum class Kind { Accepted, None, Refused };
  Kind kind = Kind::None;
  // Of a refusal: what came after the three bytes, each foreign byte shown as "?", without white
  // space at its ends.
  std::string response;
  // Of a refusal: whether the helper refuses because it is of another version.
  bool wrongVersion = false;
};

// Writes the lines and reads the answer, by the given deadline. The descriptors are pipe ends of
// this side and become non-blocking. Throws SystemCallError.
HandshakeAnswer shakeHands(int input, int output, const std::string& lines,
                           Clock::Instant deadline);

// The answer that the whole output of a refused helper, without the three bytes, amounts to.
HandshakeAnswer refusalFrom(const std::string& output);

}  // namespace hoist
