// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <glib.h>
#include <gtest/gtest.h>

#include "flamegraph/FlameGraph.h"

namespace hoist::flamegraph {
namespace {

// What a strict reader of XML finds in the picture.
struct Drawn {
  explicit Drawn(const std::string& text) {
    GMarkupParser parser = {begin, nullptr, content, nullptr, nullptr};
    GMarkupParseContext* context =
        g_markup_parse_context_new(&parser, G_MARKUP_TREAT_CDATA_AS_TEXT, this, nullptr);
    GError* error = nullptr;
    wellFormed = g_markup_parse_context_parse(context, text.data(),
                                              static_cast<gssize>(text.size()), &error) &&
                 g_markup_parse_context_end_parse(context, &error);
    if (error != nullptr) message = error->message;
    g_clear_error(&error);
    g_markup_parse_context_free(context);
  }
  static void begin(GMarkupParseContext*, const char* element, const char** names,
                    const char** values, gpointer self, GError**) {
    auto& picture = *static_cast<Drawn*>(self);
    picture.inTitle = std::string_view(element) == "title";
    for (int i = 0; names[i] != nullptr; ++i) {
      const std::string_view name = names[i];
      if (name == "data-width") picture.widths.push_back(std::stoull(values[i]));
      picture.loadsSomething = picture.loadsSomething || name == "href" || name == "src";
    }
    picture.scripts += std::string_view(element) == "script";
  }
  static void content(GMarkupParseContext*, const char* text, gsize length, gpointer self,
                      GError**) {
    auto& picture = *static_cast<Drawn*>(self);
    if (picture.inTitle) picture.titles.emplace_back(text, length);
    picture.inTitle = false;
  }

  bool wellFormed = false;
  bool inTitle = false;
  bool loadsSomething = false;
  int scripts = 0;
  std::string message;
  std::vector<std::uint64_t> widths;
  std::vector<std::string> titles;
};

FlameGraph graphOf(std::vector<Box> functions) {
  FlameGraph graph;
  graph.title = titleText("<&\"cook'>", 42);
  Box thread{.name = "thread 43 \"a]]><script>\"", .above = std::move(functions)};
  for (const Box& function : thread.above) thread.width += function.width;
  graph.all = {.name = "all", .width = thread.width, .above = {thread}};
  return graph;
}

TEST(FlameGraph, IsWellFormedWhateverTheNames) {
  Drawn drawn(picture(graphOf({{"operator<", "lib&.so", 6, {}}})));
  EXPECT_TRUE(drawn.wellFormed) << drawn.message;
  EXPECT_EQ(drawn.scripts, 1);
  EXPECT_FALSE(drawn.loadsSomething);
  ASSERT_EQ(drawn.titles.size(), 4u);
  EXPECT_EQ(drawn.titles[0], "Flame graph of <&\"cook'> [42]");
  EXPECT_EQ(drawn.titles[2], "thread 43 \"a]]><script>\": 6 of 6 samples, 100.00%");
  EXPECT_EQ(drawn.titles[3], "operator< (in lib&.so): 6 of 6 samples, 100.00%");
}

TEST(FlameGraph, HasABoxOfTheRightWidthForEveryFunction) {
  Drawn drawn(picture(graphOf({{"1", "", 6, {{"2", "", 6, {{"3", "", 4, {}}}}}}})));
  EXPECT_EQ(drawn.widths, (std::vector<std::uint64_t>{6, 6, 6, 6, 4}));
}

TEST(FlameGraph, LeavesOutWhatNobodyCouldSeeAndSaysSo) {
  const std::string text = picture(graphOf({{"1", "", 10'000'000, {}}, {"2", "", 1, {}}}));
  EXPECT_EQ(Drawn(text).widths.size(), 3u);
  EXPECT_NE(text.find("1 boxes too narrow to be seen are left out."), text.npos);
}

TEST(FlameGraph, IsDrawnWithoutASingleSample) {
  EXPECT_TRUE(Drawn(picture(graphOf({}))).wellFormed);
}

}  // namespace
}  // namespace hoist::flamegraph
