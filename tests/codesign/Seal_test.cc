// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Seal.h"

#include <gmock/gmock.h>

#include "codesign/Limits.h"
#include "codesign/SmallBundle.h"

namespace hoist::codesign {
namespace {

using testing::HasSubstr;

Seal someSeal() {
  Seal seal;
  seal.files["Contents/Info.plist"] = {platform::sha256({}), 0, 0644};
  seal.files["Contents/odd \xff\n%&<>\"' name"] = {{}, 1ull << 40, 0};
  seal.folders["Contents"] = 0755;
  seal.links[" leading"] = "../..//x ";
  return seal;
}

std::string replaced(std::string text, std::string_view what, std::string_view with) {
  const auto at = text.find(what);
  EXPECT_NE(at, text.npos) << what;
  return text.replace(at, what.size(), with);
}

std::string problemOfReading(const std::string& text) {
  return problemOf([&] { sealOfText(text); });
}

constexpr const char* kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";

std::string repeated(std::string_view text, std::size_t times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

TEST(Seal, IsReadBackAsItWasWritten) {
  EXPECT_EQ(sealOfText(textOfSeal(someSeal())), someSeal());
  EXPECT_EQ(sealOfText(textOfSeal({})), Seal{});
}

TEST(Seal, HasOneText) {
  EXPECT_EQ(textOfSeal(someSeal()), textOfSeal(someSeal()));
}

TEST(Seal, OfAsManyEntriesAsAllowedIsReadBack) {
  Seal seal;
  for (std::uint64_t i = 0; i < kMaximumEntries; ++i) {
    seal.files["Contents/Resources/some/folder/file number " + std::to_string(i)] = {{}, i, 0644};
  }
  const auto text = textOfSeal(seal);
  EXPECT_LT(text.size(), kMaximumSealBytes);
  EXPECT_EQ(sealOfText(text), seal);
}

TEST(Seal, RefusesValuesThatDoNotBelong) {
  const auto text = textOfSeal(someSeal());
  const struct {
    const char *what, *with, *problem;
  } kCases[] = {
      {"<integer>1</integer>", "<integer>2</integer>", "version"},
      {"<integer>1</integer>", "<string>1</string>", "version"},
      {"<integer>0</integer>", "<integer>-1</integer>", "size"},
      {"<integer>0</integer>", "<real>0</real>", "size"},
      {"<integer>0</integer>", "<string>0</string>", "size"},
      {"<dict>", "<dict><key>more</key><true/>", "unknown key"},
      {"<key>version</key>", "<key>revision</key>", "lacks the key version"},
      {"<key>version</key>\n\t<integer>1</integer>", "", "lacks the key version"},
      {"<string>0644</string>", "<string>4644</string>", "mode"},
      {"<string>0644</string>", "<string>644</string>", "mode"},
      {"<string>0644</string>", "<string>064x</string>", "mode"},
      {"<string>0644</string>", "<integer>644</integer>", "text"},
      {"<key>mode</key>", "<key>size</key>", "lacks the key mode"},
      {"e3b0c442", "e3b0c44", "digest"},
      {"e3b0c442", "E3B0C442", "digest"},
      {"e3b0c442", "e3b0c44g", "digest"},
      {"Contents/Info.plist", "/Contents/Info.plist", "path"},
      {"Contents/Info.plist", "Contents//Info.plist", "path"},
      {"Contents/Info.plist", "Contents/../Info.plist", "path"},
      {"Contents/Info.plist", "./Info.plist", "path"},
      {"Contents/Info.plist", "Contents/", "path"},
      {"Contents/Info.plist", "", "path"},
      {"Contents/Info.plist", "%43ontents", "path"},
      {"Contents/Info.plist", "Contents%00", "path"},
      {"Contents/Info.plist", "Contents/_CodeSignature/CodeResources", "path"},
      {"Contents/Info.plist", "Contents/_CodeSignature/CodeSignature", "path"},
      {"<string>../..//x </string>", "<string></string>", "target"},
  };
  for (const auto& c : kCases) {
    EXPECT_THAT(problemOfReading(replaced(text, c.what, c.with)), HasSubstr(c.problem))
        << c.what << " -> " << c.with;
  }
}

TEST(Seal, RefusesWhatIsNoPropertyListOfItsShape) {
  const auto text = textOfSeal(someSeal());
  for (const auto& other :
       {std::string(), std::string("bplist00"), std::string(kHead), text.substr(0, text.size() / 2),
        std::string(kHead) + "<dict>", std::string(kHead) + "</plist>",
        std::string(kHead) + "<array/></plist>", std::string(kHead) + "<dict/></plist>",
        std::string(1, '\0') + text, replaced(text, "0644", std::string_view("06\0004", 4)),
        replaced(text, "0644", "06&#0;44"), replaced(text, "<string>0644</string>", "<true/>"),
        replaced(text, "<dict>", "<dict x=\"1\">"),
        replaced(text, "<dict>", "<!DOCTYPE x [<!ENTITY a \"b\">]><dict>")}) {
    EXPECT_NE(problemOfReading(other), "") << other;
  }
}

TEST(Seal, RefusesNestingThatWouldEndTheProcess) {
  EXPECT_NE(problemOfReading(kHead + repeated("<dict><key>a</key>", 200'000) +
                             repeated("</dict>", 200'000) + "</plist>"),
            "");
}

TEST(Seal, RefusesMoreThanItReads) {
  EXPECT_THAT(problemOfReading(kHead + std::string(kMaximumSealBytes, ' ')),
              HasSubstr("too large"));
}

TEST(Seal, IsReadableForPlistReadersOfOthers) {
  const TemporaryFolder folder;
  const auto file = folder.write("seal", textOfSeal(someSeal()));
  const auto script = folder.write(
      "read.py",
      "import plistlib, sys\nseal = plistlib.load(open(sys.argv[1], 'rb'))\n"
      "assert seal['version'] == 1\n"
      "assert seal['folders'] == {'Contents': '0755'}\n"
      "assert seal['links'] == {' leading': '../..//x '}\n"
      "assert seal['files']['Contents/odd %FF%0A%25&<>\"\\' name']['size'] == 1 << 40\n");
  EXPECT_EQ(std::system(("python3 " + script + " " + file).c_str()), 0);
}

}  // namespace
}  // namespace hoist::codesign
