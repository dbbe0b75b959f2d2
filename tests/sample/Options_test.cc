// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Options.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <vector>

namespace hoist::sample {
namespace {

using namespace std::chrono_literals;

Options parse(std::vector<std::string> words) {
  words.insert(words.begin(), "sample");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return parseOptions(static_cast<int>(words.size()), arguments.data());
}

TEST(SampleOptions, TakeTheThreeArgumentsOfTheDaemon) {
  Options options = parse({"1234", "-file", "/tmp/a report"});
  EXPECT_EQ(options.processID, 1234);
  EXPECT_EQ(options.reportPath, "/tmp/a report");
  EXPECT_EQ(options.duration, 10s);
  EXPECT_EQ(options.interval, 1ms);
  EXPECT_FALSE(options.flameGraphPath);
}

TEST(SampleOptions, TakeTheRestInAnyOrder) {
  Options options = parse({"-duration", "2.5", "7", "-flamegraph=x.svg", "-interval", "0.25"});
  EXPECT_EQ(options.processID, 7);
  EXPECT_EQ(options.duration, 2500ms);
  EXPECT_EQ(options.interval, 250us);
  EXPECT_EQ(options.flameGraphPath, "x.svg");
  EXPECT_FALSE(options.reportPath);
  options = parse({"7", "3", "5"});
  EXPECT_EQ(options.duration, 3s);
  EXPECT_EQ(options.interval, 5ms);
}

TEST(SampleOptions, RefuseEverythingElseInOneLine) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {""},
      {"0"},
      {"-1"},
      {"+1"},
      {" 1"},
      {"1x"},
      {"99999999999"},
      {"4294967297"},
      {"1", "2", "3", "4"},
      {"1", "-file"},
      {"1", "-file", ""},
      {"1", "-nonsense"},
      {"1", "-duration", "0"},
      {"1", "-duration", "nan"},
      {"1", "-duration", "1e9"},
      {"1", "-duration", "1s"},
      {"1", "-interval", "-1"},
      {"1", "-interval", ""},
      {"1", "-file", "same", "-flamegraph", "same"},
  };
  for (const auto& words : wrong) {
    try {
      parse(words);
      ADD_FAILURE() << testing::PrintToString(words);
    } catch (const UsageError& error) {
      EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
    }
  }
}

TEST(SampleOptions, AreTheOnesOfTheDocument) {
  std::ifstream file(HOIST_SOURCE_DIR "/docs/sampling.md");
  const std::string document{std::istreambuf_iterator<char>(file), {}};
  const std::string usage = usageText();
  EXPECT_NE(document.find(usage.substr(usage.find("sample PID"))), document.npos);
  const Options defaults;
  EXPECT_NE(document.find("| `-duration` | " + std::to_string(defaults.duration / 1s) + " s "),
            document.npos);
  EXPECT_NE(document.find("| `-interval` | " + std::to_string(defaults.interval / 1ms) + " ms "),
            document.npos);
}

TEST(SampleOptions, KnowTheCallForHelp) {
  EXPECT_THROW(parse({"-help"}), HelpWanted);
}

}  // namespace
}  // namespace hoist::sample
