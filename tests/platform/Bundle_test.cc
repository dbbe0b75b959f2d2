// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Bundle.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "platform/InfoPlist.h"
#include "platform/PropertyList.h"
#include "support/TemporaryFolder.h"

namespace hoist::platform {
namespace {

namespace fs = std::filesystem;
using testing::Optional;

std::string infoPlist(const std::string& executable) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
         "<key>CFBundleIdentifier</key><string>com.kelvo.test</string>\n"
         "<key>CFBundleExecutable</key><string>" +
         executable + "</string>\n</dict>\n</plist>\n";
}

class BundleTest : public testing::Test {
 protected:
  void writeInfo(const std::string& executable) {
    folder_.write("X.app/Contents/Info.plist", infoPlist(executable));
  }
  std::string app() const { return folder_ / "X.app"; }
  std::optional<std::string> executable() const {
    const auto bundle = Bundle::bundleWithPath(app());
    return bundle ? bundle->executablePath() : std::nullopt;
  }

  TemporaryFolder folder_;
};

TEST_F(BundleTest, LooksInLinuxThenMacOSThenTheRoot) {
  writeInfo("tool");
  EXPECT_EQ(executable(), std::nullopt);
  folder_.write("X.app/tool", "");
  EXPECT_THAT(executable(), Optional(app() + "/tool"));
  folder_.write("X.app/Contents/MacOS/tool", "");
  EXPECT_THAT(executable(), Optional(app() + "/Contents/MacOS/tool"));
  folder_.write("X.app/Contents/Linux/tool", "");
  EXPECT_THAT(executable(), Optional(app() + "/Contents/Linux/tool"));
}

TEST_F(BundleTest, APathThatIsNoFolderIsNoBundle) {
  folder_.write("file", "");
  EXPECT_FALSE(Bundle::bundleWithPath(folder_ / "file"));
  EXPECT_FALSE(Bundle::bundleWithPath(folder_ / "absent"));
  EXPECT_FALSE(Bundle::bundleWithPath(""));
  EXPECT_FALSE(Bundle::bundleWithPath(std::string_view("/tmp\0x", 6)));
  EXPECT_FALSE(Bundle::bundleWithPath("/" + std::string(10'000'000, 'a')));
}

TEST_F(BundleTest, SlashesAtTheEndDoNotCount) {
  writeInfo("tool");
  folder_.write("X.app/Contents/Linux/tool", "");
  const auto bundle = Bundle::bundleWithPath(app() + "///");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->bundlePath(), app());
  EXPECT_THAT(bundle->executablePath(), Optional(app() + "/Contents/Linux/tool"));
  EXPECT_EQ(Bundle::bundleWithPath("//")->bundlePath(), "/");
}

TEST_F(BundleTest, AnExecutableNameMustBeAPlainName) {
  folder_.write("X.app/Contents/Linux/tool", "");
  folder_.write("X.app/Contents/other", "");
  for (const char* name : {"", ".", "..", "../other", "/bin/true", "sub/tool", "tool/"}) {
    writeInfo(name);
    EXPECT_EQ(executable(), std::nullopt) << name;
  }
}

TEST_F(BundleTest, NoLinkInsideIsFollowed) {
  folder_.write("real/Info.plist", infoPlist("tool"));
  folder_.write("real/tool", "");
  fs::create_directories(folder_ / "X.app/Contents/Linux");
  fs::create_symlink("../../real/Info.plist", folder_ / "X.app/Contents/Info.plist");
  folder_.write("X.app/Contents/MacOS/tool", "");
  EXPECT_EQ(executable(), std::nullopt);
  fs::remove(folder_ / "X.app/Contents/Info.plist");
  writeInfo("tool");
  fs::create_symlink("../../../real/tool", folder_ / "X.app/Contents/Linux/tool");
  EXPECT_THAT(executable(), Optional(app() + "/Contents/MacOS/tool"));
  fs::remove_all(folder_ / "X.app/Contents/MacOS");
  fs::create_directory_symlink("../../real", folder_ / "X.app/Contents/MacOS");
  EXPECT_EQ(executable(), std::nullopt);
}

TEST_F(BundleTest, AFIFOInTheWayHoldsNobodyUp) {
  fs::create_directories(folder_ / "X.app/Contents");
  ASSERT_EQ(mkfifo((folder_ / "X.app/Contents/Info.plist").c_str(), 0600), 0);
  EXPECT_EQ(executable(), std::nullopt);
}

TEST_F(BundleTest, AnInfoPlistThatIsTooLargeIsNotRead) {
  const std::string filler(kMaximumInfoPlistBytes, ' ');
  folder_.write("X.app/Contents/Info.plist", infoPlist("tool") + filler);
  folder_.write("X.app/tool", "");
  EXPECT_EQ(executable(), std::nullopt);
}

TEST_F(BundleTest, AnswersTheURLWithEscapes) {
  writeInfo("a tool%");
  folder_.write("X.app/a tool%", "");
  EXPECT_THAT(Bundle::bundleWithPath(app())->executableURL(),
              Optional("file://" + app() + "/a%20tool%25"));
}

TEST_F(BundleTest, AnswersTheIdentifier) {
  writeInfo("tool");
  EXPECT_THAT(Bundle::bundleWithPath(app())->bundleIdentifier(),
              Optional(std::string("com.kelvo.test")));
  EXPECT_EQ(Bundle::bundleWithPath(app())->infoText("Absent"), std::nullopt);
}

std::optional<std::string> nameIn(std::string_view text) {
  return executableNameOfInfoPlist(
      {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

std::string repeated(std::string_view text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

TEST(InfoPlist, RefusesWhatIsNoPropertyListOfTheExpectedShape) {
  for (const char* text :
       {"", "not a property list", "<plist version=\"1.0\"><array/></plist>",
        "<plist "
        "version=\"1.0\"><dict><key>CFBundleExecutable</key><integer>1</integer></dict></plist>",
        "<plist version=\"1.0\"><dict><key>Other</key><string>a</string></dict></plist>"}) {
    EXPECT_EQ(nameIn(text), std::nullopt) << text;
  }
}

TEST(InfoPlist, IsReadInBothForms) {
  const Value value = Dictionary{{"CFBundleExecutable", "tool"}};
  for (const auto form : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
    EXPECT_THAT(executableNameOfInfoPlist(dataFromPropertyList(value, form).bytes()),
                Optional(std::string("tool")));
  }
}

TEST(InfoPlist, RefusesNestingThatWouldEndTheProcess) {
  const int levels = 60'000;
  EXPECT_EQ(nameIn("<plist version=\"1.0\">" + repeated("<array>", levels) +
                   repeated("</array>", levels) + "</plist>"),
            std::nullopt);
  // Closings that only look like some do not hide it.
  EXPECT_EQ(
      nameIn("<plist version=\"1.0\">" + repeated("<dict><!-- </dict> --><key>a</key>", 20'000)),
      std::nullopt);
}

TEST(InfoPlist, ANulInATextDoesNotEndTheProcess) {
  auto text = infoPlist("a-b");
  text[text.find("a-b") + 1] = '\0';
  EXPECT_EQ(nameIn(text), std::nullopt);
}

TEST(InfoPlist, ReadsOneWithCommentsAndNestedValues) {
  EXPECT_THAT(nameIn("<?xml version=\"1.0\"?><!-- hand-made --><plist version=\"1.0\"><dict>"
                     "<key>Types</key><array><dict/><dict/></array>"
                     "<key>CFBundleExecutable</key><string>a&amp;b</string></dict></plist>"),
              Optional(std::string("a&b")));
}

}  // namespace
}  // namespace hoist::platform
