// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/Classification.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "logging/Logger.h"

namespace hoist {
namespace {

TEST(Classification, EachHasASevenCharacterName) {
  const char* names[] = {"       ", "-------", "Curious", "Caution", "Warning",
                         "Failure", "Minutia", "Details", "Subrosa", "#debug#"};
  for (Classification classification = 0; classification < 10; ++classification) {
    EXPECT_EQ(Logger::nameOfClassification(classification), names[classification]);
    EXPECT_EQ(Logger::nameOfClassification(classification).size(), 7u);
    EXPECT_EQ(Logger::classificationFromName(names[classification]), classification);
  }
}

TEST(Classification, PlainIsSevenBlanks) {
  EXPECT_EQ(Logger::nameOfClassification(0), std::string(7, ' '));
}

TEST(Classification, NameIsComparedExactly) {
  EXPECT_EQ(Logger::classificationFromName("Warning"), 4);
  EXPECT_EQ(Logger::classificationFromName("warning"), -1);
  EXPECT_EQ(Logger::classificationFromName("Warning "), -1);
  EXPECT_EQ(Logger::classificationFromName(""), -1);
}

TEST(Classification, NumberOutsideTheTableReadsAsDebug) {
  for (Classification classification : {-2147483647 - 1, -1, 10, 2147483647}) {
    EXPECT_EQ(Logger::nameOfClassification(classification), "#debug#") << classification;
  }
}

TEST(Classification, TableInTheManualIsThisOne) {
  std::ifstream file(HOIST_SOURCE_DIR "/docs/logging.md");
  std::string manual{std::istreambuf_iterator<char>(file), {}};
  for (Classification classification = 1; classification < 10; ++classification) {
    std::string row = "| " + std::to_string(classification) + " | `" +
                      std::string(Logger::nameOfClassification(classification)) + "` |";
    EXPECT_NE(manual.find(row), std::string::npos) << row;
  }
}

}  // namespace
}  // namespace hoist
