// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What service managers and installers find in the executable.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/PropertyList.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"
#include "values/product.h"

namespace hoist {
namespace {

const std::string kPrefix(product::kIdentifierPrefix);

// The content of one section of the program.
std::string sectionOfHoist(const std::string& name) {
  TemporaryFolder folder;
  auto copied = runProgram("/usr/bin/objcopy", {"-O", "binary", "--only-section=" + name,
                                                HOIST_BUILD_DIR "/bin/hoist", folder / "section"});
  EXPECT_EQ(copied.status, 0) << copied.output;
  std::ifstream section(folder / "section", std::ios::binary);
  return {std::istreambuf_iterator<char>(section), {}};
}

// Of all its dictionaries, in the order in which they are written.
std::vector<std::string> keysOf(const std::string& list) {
  const std::string opening = "<key>", closing = "</key>";
  std::vector<std::string> keys;
  for (std::size_t at = 0; (at = list.find(opening, at)) != std::string::npos;) {
    at += opening.size();
    keys.push_back(list.substr(at, list.find(closing, at) - at));
  }
  return keys;
}

Value parsed(const std::string& list) {
  return platform::propertyListFromData(Data::fromString(list).bytes());
}

TEST(EmbeddedPlists, DescribeTheJob) {
  auto list = sectionOfHoist("__launchd_plist");
  EXPECT_EQ(keysOf(list), (std::vector<std::string>{"MachServices", kPrefix + ".hoist", "KeepAlive",
                                                    "RunAtLoad", "Label"}));
  EXPECT_EQ(parsed(list), Value(Dictionary{{"MachServices", Dictionary{{kPrefix + ".hoist", true}}},
                                           {"KeepAlive", false},
                                           {"RunAtLoad", false},
                                           {"Label", kPrefix + ".hoist"}}));
}

TEST(EmbeddedPlists, DescribeTheProgramAndItsClients) {
  auto list = sectionOfHoist("__info_plist");
  EXPECT_EQ(keysOf(list),
            (std::vector<std::string>{"CFBundleIdentifier", "CFBundleInfoDictionaryVersion",
                                      "CFBundleName", "CFBundleVersion", "SMAuthorizedClients"}));
  const std::string client =
      "anchor apple generic and identifier \"" + kPrefix +
      ".client\" and (certificate leaf[field.1.2.840.113635.100.6.1.9] /* exists */ or "
      "certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */ and "
      "certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and "
      "certificate leaf[subject.OU] = \"" +
      std::string(product::kTeamIdentifier) + "\")";
  EXPECT_EQ(parsed(list), Value(Dictionary{{"CFBundleIdentifier", kPrefix + ".hoist"},
                                           {"CFBundleInfoDictionaryVersion", "6.0"},
                                           {"CFBundleName", "KelvoHoist"},
                                           {"CFBundleVersion", "2.0.6"},
                                           {"SMAuthorizedClients", Array{client}}}));
}

}  // namespace
}  // namespace hoist
