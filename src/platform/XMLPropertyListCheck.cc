// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"
#include "platform/PropertyListCheck.h"

// libplist reads XML without recursion but frees and writes the result with it, and it looks up the
// days of month 99 without asking. So the text is cut into tags here first. To be sure that both
// readings agree on where a tag begins, whatever is not needed is refused: quotes that hide a ">",
// attributes, an embedded document type.

namespace hoist::platform {
namespace {

[[noreturn]] void refuse(const char* why) {
  throw PropertyListError(std::string("not a usable XML property list: ") + why);
}

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

class Checker {
 public:
  explicit Checker(std::string_view text) : text_(text) {}

  void check() {
    if (text_.size() > kMaximumPropertyListSize) refuse("too long");
    if (text_.find('\0') != std::string_view::npos) refuse("a NUL byte");
    while (skipTo('<')) {
      if (take("<!--")) {
        skipPast("-->");
      } else if (take("<![CDATA[")) {
        skipPast("]]>");
      } else if (take("<?")) {
        checkPrologue(skipPast("?>"));
      } else if (take("<!DOCTYPE")) {
        checkPrologue(skipPast(">"));
      } else {
        text_.remove_prefix(1);
        checkTag(skipPast(">"));
      }
    }
    if (!anyTag_) refuse("no element");
  }

 private:
  bool take(std::string_view begin) {
    if (!text_.starts_with(begin)) return false;
    text_.remove_prefix(begin.size());
    return true;
  }

  bool skipTo(char c) {
    auto at = text_.find(c);
    text_.remove_prefix(std::min(at, text_.size()));
    return at != std::string_view::npos;
  }

  // Answers what was before the end mark.
  std::string_view skipPast(std::string_view end) {
    auto at = text_.find(end);
    if (at == std::string_view::npos) refuse("cut off");
    auto skipped = text_.substr(0, at);
    text_.remove_prefix(at + end.size());
    return skipped;
  }

  static void checkPrologue(std::string_view inside) {
    if (std::ranges::count(inside, '"') % 2 != 0) refuse("an end mark in quotes");
    if (inside.find_first_of("[<") != std::string_view::npos) refuse("an embedded document type");
  }

  void checkTag(std::string_view tag) {
    anyTag_ = true;
    if (tag.starts_with("plist")) {
      checkPrologue(tag);
      return;
    }
    bool closes = tag.starts_with('/');
    if (closes) tag.remove_prefix(1);
    bool empty = tag.ends_with('/');
    if (empty) tag.remove_suffix(1);
    while (!tag.empty() && isBlank(tag.back())) tag.remove_suffix(1);
    if (tag.empty() || !std::ranges::all_of(tag, [](char c) { return c >= 'a' && c <= 'z'; })) {
      refuse("an unknown tag");
    }
    if (tag == "date" && !closes && !empty) checkDate();
    if (tag != "dict" && tag != "array") return;
    if (closes) {
      if (depth_ > 0) --depth_;
    } else if (!empty && ++depth_ > kMaximumPropertyListDepth) {
      refuse("nested too deep");
    }
  }

  // YYYY-MM-DDTHH:MM:SSZ, and nothing else up to the closing tag.
  void checkDate() {
    while (!text_.empty() && isBlank(text_.front())) text_.remove_prefix(1);
    constexpr std::string_view kPattern = "####-##-##T##:##:##Z";
    std::string_view date = text_.substr(0, kPattern.size());
    auto matches = [](char pattern, char c) { return pattern == '#' ? isDigit(c) : pattern == c; };
    if (!std::ranges::equal(kPattern, date, matches)) refuse("a date that is none");
    auto field = [&](std::size_t at) { return (date[at] - '0') * 10 + (date[at + 1] - '0'); };
    if (date.starts_with("0000") || field(5) < 1 || field(5) > 12 || field(8) < 1 ||
        field(8) > 31 || field(11) > 23 || field(14) > 59 || field(17) > 60) {
      refuse("a date that is none");
    }
    text_.remove_prefix(kPattern.size());
    while (!text_.empty() && isBlank(text_.front())) text_.remove_prefix(1);
    if (!text_.starts_with("</date")) refuse("a date that is none");
  }

  std::string_view text_;
  unsigned depth_ = 0;
  bool anyTag_ = false;
};

}  // namespace

void checkXMLPropertyList(std::span<const std::uint8_t> bytes) {
  Checker({reinterpret_cast<const char*>(bytes.data()), bytes.size()}).check();
}

}  // namespace hoist::platform
