// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/TextEncoding.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace hoist {
namespace {

// As g_convert calls them; null for an encoding that is not known.
const char* characterSet(TextEncoding encoding) {
  switch (encoding) {
    case TextEncoding::ASCII:
      return "ASCII";
    case TextEncoding::JapaneseEUC:
      return "EUC-JP";
    case TextEncoding::UTF8:
      return "UTF-8";
    case TextEncoding::ISOLatin1:
      return "ISO-8859-1";
    case TextEncoding::ShiftJIS:
      return "SHIFT_JIS";
    case TextEncoding::ISOLatin2:
      return "ISO-8859-2";
    case TextEncoding::UTF16:
      return "UTF-16";
    case TextEncoding::WindowsCP1251:
      return "CP1251";
    case TextEncoding::WindowsCP1252:
      return "CP1252";
    case TextEncoding::WindowsCP1253:
      return "CP1253";
    case TextEncoding::WindowsCP1254:
      return "CP1254";
    case TextEncoding::WindowsCP1250:
      return "CP1250";
    case TextEncoding::ISO2022JP:
      return "ISO-2022-JP";
    case TextEncoding::MacOSRoman:
      return "MACINTOSH";
    case TextEncoding::UTF16BigEndian:
      return "UTF-16BE";
    case TextEncoding::UTF16LittleEndian:
      return "UTF-16LE";
    case TextEncoding::UTF32:
      return "UTF-32";
    case TextEncoding::UTF32BigEndian:
      return "UTF-32BE";
    case TextEncoding::UTF32LittleEndian:
      return "UTF-32LE";
  }
  return nullptr;
}

// g_utf8_validate_len takes a NUL for the end of the text; here it is a character like any other.
bool isUTF8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::string_view part = bytes.substr(0, bytes.find('\0'));
    if (!::g_utf8_validate_len(part.data(), part.size(), nullptr)) return false;
    bytes.remove_prefix(std::min(part.size() + 1, bytes.size()));
  }
  return true;
}

}  // namespace

std::optional<std::string> decodeText(std::string bytes, TextEncoding encoding) {
  if (encoding == TextEncoding::UTF8) {
    return isUTF8(bytes) ? std::optional(std::move(bytes)) : std::nullopt;
  }
  const char* from = characterSet(encoding);
  if (from == nullptr) return std::nullopt;
  gsize length = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      ::g_convert(bytes.data(), static_cast<gssize>(bytes.size()), "UTF-8", from, nullptr, &length,
                  nullptr),
      ::g_free);
  return text ? std::optional(std::string(text.get(), length)) : std::nullopt;
}

}  // namespace hoist
