// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/DetailsTree.h"

#include <gtest/gtest.h>

#include "exceptions/KLException.h"
#include "hoistctl/CommandError.h"

namespace hoist::ctl {
namespace {

TEST(DetailsTree, ShowsNameReasonExplanationAndEveryDetail) {
  auto exception = KLException::exceptionWithName("IO", "cannot copy item")
                       .setDetail(Value(28), "POSIXErr")
                       .setCause(Value(Dictionary{{"Device", "/dev/sdz1"}, {"Sizes", Array{1, 2}}}))
                       .setExplanation("No room.");
  EXPECT_EQ(detailsTree(exception),
            "<IO> cannot copy item\n"
            "No room.\n"
            "├─ Cause\n"
            "│  ├─ Device  /dev/sdz1\n"
            "│  └─ Sizes\n"
            "│     ├─ 0  1\n"
            "│     └─ 1  2\n"
            "└─ POSIXErr  28\n");
}

TEST(DetailsTree, ShowsAnExceptionInsideAnother) {
  auto inner = KLException::exceptionWithName("Security", "not yours").setDetail(Value(7), "Depth");
  auto outer = KLException::exceptionWithName("Bug", "lost").setCause(Value(inner.state()));
  EXPECT_EQ(detailsTree(outer),
            "<Bug> lost\n"
            "└─ Cause  <Security> not yours\n"
            "   └─ Depth  7\n");
}

TEST(DetailsTree, LeavesHiddenDetailsOutAndControlsVisible) {
  Exception exception("IO", "a\033[2Jb", {{".SoftError", true}, {"Na\nme", "x\ty"}});
  EXPECT_EQ(detailsTree(exception), "<IO> a\\033[2Jb\n└─ Na\\012me  x\\011y\n");
}

TEST(DetailsTree, IsJsonForPrograms) {
  Exception exception("IO", std::nullopt, {{".SoftError", true}, {"List", Array{Value(), 1.5}}});
  EXPECT_EQ(exceptionAsJson(exception).dump(),
            R"({"name":"IO","details":{".SoftError":true,"List":[null,1.5]}})");
}

TEST(DetailsTree, ReadsADictionaryFromJson) {
  auto dictionary = dictionaryFromJson(R"({"a": [true, -3, 0.5, null, {"b": "text"}]})");
  EXPECT_EQ(Value(dictionary),
            Value(Dictionary{{"a", Array{true, -3, 0.5, Value(), Dictionary{{"b", "text"}}}}}));
  for (const char* text : {"", "[]", "{", "7"})
    EXPECT_THROW(dictionaryFromJson(text), CommandError) << text;
}

}  // namespace
}  // namespace hoist::ctl
