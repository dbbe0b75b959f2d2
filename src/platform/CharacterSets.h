// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace hoist {

// The platform's character sets, by Unicode's definitions.

// Line feed to carriage return, next line, line and paragraph separator.
bool isNewline(char32_t character);
// The categories Cc (control) and Cf (format).
bool isControl(char32_t character);
// Unassigned characters, noncharacters and surrogates.
bool isIllegal(char32_t character);
// Blank, tab and the other horizontal spaces; no line breaks.
bool isWhitespace(char32_t character);

}  // namespace hoist
