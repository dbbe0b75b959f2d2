// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/Signature.h"

namespace hoist::dbus {

namespace {

struct Depths {
  unsigned arrays = 0;
  unsigned structs = 0;
  unsigned dictEntries = 0;
};

const char* parseType(const char* p, const char* end, Depths depths);

// Behind "{", a basic type and a complete type: answers the place behind "}", or null.
const char* parseDictEntry(const char* p, const char* end, Depths depths) {
  if (++depths.dictEntries > kMaximumStructDepth) return nullptr;
  if (p == end || !isBasicType(*p)) return nullptr;
  p = parseType(p + 1, end, depths);
  return p && p != end && *p == '}' ? p + 1 : nullptr;
}

// Behind "(": answers the place behind ")", or null.
const char* parseStruct(const char* p, const char* end, Depths depths) {
  if (++depths.structs > kMaximumStructDepth) return nullptr;
  do {
    p = parseType(p, end, depths);
  } while (p && p != end && *p != ')');
  return p && p != end ? p + 1 : nullptr;
}

// Answers the place behind the complete type that begins here, or null. The recursion is bounded by
// the depths.
const char* parseType(const char* p, const char* end, Depths depths) {
  if (p == end) return nullptr;
  char type = *p++;
  if (isBasicType(type) || type == 'v') return p;
  if (type == '(') return parseStruct(p, end, depths);
  if (type != 'a' || ++depths.arrays > kMaximumArrayDepth) return nullptr;
  if (p != end && *p == '{') return parseDictEntry(p + 1, end, depths);
  return parseType(p, end, depths);
}

}  // namespace

bool isBasicType(char type) {
  switch (type) {
    case 'y':
    case 'b':
    case 'n':
    case 'q':
    case 'i':
    case 'u':
    case 'x':
    case 't':
    case 'd':
    case 'h':
    case 's':
    case 'o':
    case 'g':
      return true;
    default:
      return false;
  }
}

std::size_t alignmentOf(char type) {
  switch (type) {
    case 'n':
    case 'q':
      return 2;
    case 'b':
    case 'i':
    case 'u':
    case 'h':
    case 's':
    case 'o':
    case 'a':
      return 4;
    case 'x':
    case 't':
    case 'd':
    case '(':
    case '{':
      return 8;
    default:
      return 1;
  }
}

bool isValidSignature(std::string_view signature) {
  if (signature.size() > kMaximumSignatureLength) return false;
  const char* end = signature.data() + signature.size();
  const char* p = signature.data();
  while (p && p != end) p = parseType(p, end, {});
  return p == end;
}

bool isSingleCompleteType(std::string_view signature) {
  if (signature.size() > kMaximumSignatureLength) return false;
  const char* end = signature.data() + signature.size();
  return parseType(signature.data(), end, {}) == end && !signature.empty();
}

std::size_t completeTypeLength(std::string_view signature) {
  std::size_t length = 0;
  while (length < signature.size() && signature[length] == 'a') ++length;
  std::size_t open = 0;
  for (; length < signature.size(); ++length) {
    char type = signature[length];
    if (type == '(' || type == '{') ++open;
    if (type == ')' || type == '}') --open;
    if (open == 0) return length + 1;
  }
  return length;
}

}  // namespace hoist::dbus
