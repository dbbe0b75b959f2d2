// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sstream>

#include "codesign/Limits.h"
#include "platform/InfoPlist.h"
#include "support/TemporaryFolder.h"
#include "values/product.h"

namespace hoist::codesign {
namespace {

using testing::HasSubstr;

std::string page() {
  std::ifstream file(HOIST_SOURCE_DIR "/docs/code-signing.md");
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string between(const std::string& text, std::string_view begin, std::string_view end) {
  const auto from = text.find(begin);
  const auto to = text.find(end, from + begin.size());
  EXPECT_NE(to, std::string::npos) << begin;
  return text.substr(from + begin.size(), to - from - begin.size());
}

TEST(CodeSigningPage, ItsExampleRuns) {
  const TemporaryFolder folder;
  std::filesystem::create_directory_symlink(HOIST_SOURCE_DIR "/examples", folder / "examples");
  const auto script = folder.write("script", "set -eux\nPATH=" HOIST_BUILD_DIR "/bin:$PATH\n" +
                                                 between(page(), "```sh\n", "```"));
  const auto command = fmt::format("cd '{}' && sh '{}' >output 2>&1 || {{ cat output; exit 1; }}",
                                   folder.path(), script);
  ASSERT_EQ(std::system(command.c_str()), 0);
  std::ifstream output(folder / "output");
  std::stringstream text;
  text << output.rdbuf();
  const auto last = between(page(), "The last command says: `", "`");
  EXPECT_THAT(text.str(), HasSubstr(last + "\n"));
}

TEST(CodeSigningPage, StatesTheNumbersOfTheProgram) {
  const auto text = page();
  EXPECT_THAT(text, HasSubstr(fmt::format("`{}`", product::kTrustDirectory)));
  EXPECT_THAT(text, HasSubstr(fmt::format("{} entries", kMaximumEntries)));
  EXPECT_THAT(text, HasSubstr(fmt::format("{} GiB of\ncontent", kMaximumContentBytes >> 30)));
  EXPECT_THAT(text, HasSubstr(fmt::format("folders {} deep", kMaximumDepth)));
  EXPECT_THAT(text, HasSubstr(fmt::format("a seal of {} MiB", kMaximumSealBytes >> 20)));
  EXPECT_THAT(text, HasSubstr(fmt::format("a signature of {} KiB", kMaximumSignatureBytes >> 10)));
  EXPECT_THAT(text, HasSubstr(fmt::format("after {} seconds", kDefaultTimeLimit)));
  EXPECT_THAT(text,
              HasSubstr(fmt::format("at most {} MiB", platform::kMaximumInfoPlistBytes >> 20)));
}

}  // namespace
}  // namespace hoist::codesign
