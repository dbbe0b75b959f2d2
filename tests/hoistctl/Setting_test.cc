// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "connection/CommandInfo.h"
#include "hoistctl/CommandError.h"
#include "support/TemporaryFolder.h"

namespace hoist::ctl {
namespace {

using testing::HasSubstr;

Setting setting(const std::string& text, const std::string& command) {
  return Setting(text, CommandInfo::protocolForName(command));
}

TEST(Setting, KnowsThePropertiesOfTheCommandAndOfWhatItAdopts) {
  EXPECT_EQ(setting("recallPath=/x", "recall").property(), "recallPath");
  EXPECT_EQ(setting("includeDeleted=yes", "recall").property(), "includeDeleted");
  EXPECT_EQ(setting("password=a=b", "recall").property(), "password");
  EXPECT_EQ(setting("actionUUID=1", "recall").property(), "actionUUID");
  EXPECT_EQ(setting("targetPath=/home", "capture").property(), "targetPath");
  for (const char* text : {"recallPath=/x", "RecallPath", "", "=", "run", "dumpFlags=1", "name=x"})
    EXPECT_THROW(setting(text, "capture"), CommandError) << text;
}

TEST(Setting, TakesTheValuesThatItsArgumentCanBe) {
  TemporaryFolder folder;
  for (const auto& text :
       {std::string("sizeStyle=-3"), std::string("columnFormat=name,size"),
        std::string("includeDeleted=no"), std::string("alternateKeyFilePath"),
        R"(repositoryRef={"path": "/backup"})" + std::string(),
        "outputFileHandle=" + (folder / "out"), std::string("outputFileHandle=-")}) {
    EXPECT_NO_THROW(setting(text, "dump")) << text;
  }
  EXPECT_NO_THROW(setting("retainDeletedItemsDate=2024-03-05", "merge"));
  EXPECT_NO_THROW(setting("retainDeletedItemsDate=2024-03-05T13:07:09Z", "merge"));
  EXPECT_NO_THROW(setting("minimumFreeRatio=0.25", "compact"));
  EXPECT_NO_THROW(setting("version=18446744073709551615", "correction"));
  EXPECT_NO_THROW(setting("restoreVolume=/", "restore"));
}

TEST(Setting, SaysWhichValueItCannotTake) {
  for (const auto& [text, command] :
       std::vector<std::pair<std::string, std::string>>{{"sizeStyle=3000000000", "dump"},
                                                        {"sizeStyle=3x", "dump"},
                                                        {"sizeStyle", "dump"},
                                                        {"includeDeleted=maybe", "dump"},
                                                        {"version=-1", "correction"},
                                                        {"retainDeletedItemsDate=soon", "merge"},
                                                        {"settings=[1]", "create"},
                                                        {"outputFileHandle=/nowhere/x", "dump"},
                                                        {"restoreVolume=/nowhere/x", "restore"}}) {
    try {
      setting(text, command);
      ADD_FAILURE() << text;
    } catch (const CommandError& error) {
      EXPECT_EQ(error.kind(), Failure::Usage);
      EXPECT_THAT(error.what(), HasSubstr(text.substr(0, text.find('=')))) << text;
    }
  }
}

}  // namespace
}  // namespace hoist::ctl
