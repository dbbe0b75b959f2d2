// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/PropertyList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/Thread.h"
#include "support/Python.h"

namespace hoist::platform {
namespace {

constexpr std::int64_t kEpoch2001 = 978'307'200;

Value read(std::string_view bytes) {
  return propertyListFromData({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

std::string write(const Value& value, PropertyListFormat format) {
  return std::string(dataFromPropertyList(value, format).view());
}

Value readXML(std::string_view inside) {
  return read("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
              std::string(inside) + "</plist>");
}

// One of each kind, with what each form may stumble over.
Value everything() {
  return Dictionary{
      {"boolean", true},
      {"not", false},
      {"zero", 0},
      {"small", -5},
      {"greatest", std::numeric_limits<std::int64_t>::max()},
      {"least", std::numeric_limits<std::int64_t>::min()},
      {"third", 1.0 / 3},
      {"huge", 1.7976931348623157e308},
      {"tiny", 5e-324},
      {"whole", 4.0},
      {"text", "<a> & \"b\" 'c' ]]> é € 😀\n\ttabbed"},
      {"empty", ""},
      {"key & <sign>", "x"},
      {"data", Data::fromString(std::string("\0\x01\xFF binary", 10))},
      {"nothing", Data()},
      {"date", Date(1'709'644'029)},
      {"old", Date(-14'182'980)},
      {"far", Date(16'725'225'600)},
      {"array", Array{1, "two", Array{}, Dictionary{}}},
      {"dictionary", Dictionary{{"inner", Dictionary{{"x", Array{Value(Array{Value(Array{})})}}}}}},
  };
}

class PropertyListForm : public testing::TestWithParam<PropertyListFormat> {};
INSTANTIATE_TEST_SUITE_P(, PropertyListForm,
                         testing::Values(PropertyListFormat::XML, PropertyListFormat::Binary),
                         [](const auto& info) {
                           return info.param == PropertyListFormat::XML ? "XML" : "Binary";
                         });

TEST_P(PropertyListForm, IsReadBackAsItWasWritten) {
  Value before = everything();
  Value after = read(write(before, GetParam()));
  ASSERT_TRUE(after.dictionary());
  for (const auto& [key, value] : *before.dictionary()) {
    ASSERT_TRUE(after.dictionary()->contains(key)) << key;
    const Value& other = after.dictionary()->find(key)->second;
    EXPECT_EQ(other, value) << key << ": " << other.description();
    EXPECT_EQ(other.kind(), value.kind()) << key;
  }
  EXPECT_EQ(after, before);
}

TEST_P(PropertyListForm, IsReadByAnotherReaderAsItWasWritten) {
  std::string answer = runPython(R"(
p = plistlib.loads(data)
utc = datetime.datetime
assert p['boolean'] is True and p['not'] is False
assert p['zero'] == 0 and p['small'] == -5
assert p['greatest'] == 2**63 - 1 and p['least'] == -2**63
assert p['third'] == 1.0 / 3 and p['huge'] == 1.7976931348623157e308 and p['tiny'] == 5e-324
assert isinstance(p['whole'], float) and p['whole'] == 4.0
assert p['text'] == '<a> & "b" \'c\' ]]> é € 😀\n\ttabbed' and p['empty'] == ''
assert p['key & <sign>'] == 'x'
assert p['data'] == b'\0\x01\xff binary' and p['nothing'] == b''
assert p['date'] == utc(2024, 3, 5, 13, 7, 9)
assert p['old'] == utc(1969, 7, 20, 20, 17, 0)
assert p['far'] == utc(2500, 1, 1)
assert p['array'] == [1, 'two', [], {}]
assert p['dictionary'] == {'inner': {'x': [[[]]]}}
assert len(p) == 20
out('all of it')
)",
                                 write(everything(), GetParam()));
  EXPECT_EQ(answer, "all of it");
}

TEST_P(PropertyListForm, OfAnotherWriterIsRead) {
  std::string form = GetParam() == PropertyListFormat::XML ? "FMT_XML" : "FMT_BINARY";
  Value value = read(runPython(
      "out(plistlib.dumps({'n': -7, 'big': 2**64 - 1, 'r': 0.1, 't': 'é😀', 'b': b'\\x00\\x80', "
      "'d': datetime.datetime(2024, 3, 5, 13, 7, 9), 'old': datetime.datetime(1601, 1, 1), "
      "'far': datetime.datetime(9999, 12, 31, 23, 59, 59), 'a': [True, [False]], "
      "'shared': ['x' * 300] * 300}, fmt=plistlib." +
      form + "))"));
  const Dictionary& entries = *value.dictionary();
  EXPECT_EQ(entries.at("n"), Value(-7));
  EXPECT_EQ(entries.at("big"), Value(-1));
  EXPECT_EQ(entries.at("r"), Value(0.1));
  EXPECT_EQ(entries.at("t"), Value("é😀"));
  EXPECT_EQ(entries.at("b"), Value(Data::fromString(std::string("\0\x80", 2))));
  EXPECT_EQ(entries.at("d"), Value(Date(1'709'644'029)));
  EXPECT_EQ(entries.at("old"), Value(Date(-11'644'473'600)));
  EXPECT_EQ(entries.at("far"), Value(Date(253'402'300'799)));
  EXPECT_EQ(entries.at("a"), Value(Array{true, Array{false}}));
  EXPECT_EQ(entries.at("shared").array()->size(), 300u);
}

TEST_P(PropertyListForm, ShowsWhatNoReaderCouldReadAsTheReplacementCharacter) {
  Value value = Dictionary{{std::string("k\xFF"), std::string("a\0b\x01\xC3(\xED\xA0\x80", 9)}};
  Value after = read(write(value, GetParam()));
  ASSERT_EQ(after.dictionary()->size(), 1u);
  EXPECT_EQ(after.dictionary()->begin()->first, "k\uFFFD");
  EXPECT_EQ(*after.dictionary()->begin()->second.string(),
            "a\uFFFDb\uFFFD\uFFFD(\uFFFD\uFFFD\uFFFD");
  EXPECT_NO_THROW(runPython("plistlib.loads(data)", write(value, GetParam())));
}

TEST_P(PropertyListForm, HasNoPlaceForNullMarkersAndObjects) {
  EXPECT_THROW(write(Value(), GetParam()), PropertyListError);
  EXPECT_THROW(write(Array{Value()}, GetParam()), PropertyListError);
  struct Thing : Object {
    std::string className() const override { return "Thing"; }
  };
  EXPECT_THROW(write(Dictionary{{"x", make<Thing>()}}, GetParam()), PropertyListError);
}

TEST_P(PropertyListForm, IsWrittenUpToSixtyFourContainersDeep) {
  Value value = 1;
  for (int i = 0; i < 64; ++i) value = Array{value};
  EXPECT_EQ(read(write(value, GetParam())), value);
  EXPECT_THROW(write(Array{value}, GetParam()), PropertyListError);
}

TEST_P(PropertyListForm, MovesDatesToTheNearestThatItCanHold) {
  bool xml = GetParam() == PropertyListFormat::XML;
  EXPECT_EQ(read(write(Date(std::numeric_limits<std::int64_t>::max()), GetParam())),
            Value(Date(253'402'300'799)));
  EXPECT_EQ(read(write(Date(std::numeric_limits<std::int64_t>::min()), GetParam())),
            Value(Date(xml ? -30'610'224'000 : -62'135'596'800)));
}

TEST(BinaryPropertyList, KeepsWhatIsBelowASecondOfADate) {
  for (Date date : {Date(kEpoch2001, 250'000'000), Date(kEpoch2001 - 1, 750'000'000),
                    Date(kEpoch2001 - 100, 999'000'000), Date(1'709'644'029, 500'000'000),
                    Date(16'725'225'600, 125'000'000), Date(-5, 250'000'000)}) {
    Value value = read(write(date, PropertyListFormat::Binary));
    ASSERT_TRUE(value.date());
    EXPECT_EQ(*value.date(), date) << date.seconds();
  }
}

TEST(XMLPropertyList, CutsADateToItsWholeSecond) {
  for (Date date : {Date(1'709'644'029, 999'999'999), Date(-5, 999'999'999)}) {
    EXPECT_EQ(read(write(date, PropertyListFormat::XML)), Value(Date(date.seconds())));
  }
}

TEST(XMLPropertyList, IsReadWithCommentsCharacterDataAndEmptyElements) {
  EXPECT_EQ(readXML("<!-- <dict> --><array><string>a<![CDATA[<b>]]>&lt;c&#x3e;</string><string/>"
                    "<data> AA\n E= </data><dict/><!-- x --><true/><integer>0x10</integer>"
                    "</array>"),
            Value(Array{"a<b><c>", "", Data::fromString(std::string("\0\1", 2)), Dictionary{}, true,
                        16}));
}

TEST(XMLPropertyList, IsReadWithTheUsualDocumentType) {
  EXPECT_EQ(read("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC "
                 "\"-//Apple//DTD PLIST 1.0//EN\" "
                 "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                 "<plist version=\"1.0\"><string>x</string></plist>\n"),
            Value("x"));
}

TEST(XMLPropertyList, RefusesWhatIsNone) {
  for (const char* text :
       {"", " ", "x", "hello <", "<plist", "<plist version=\"1.0\"></plist>", "<html></html>",

        "<plist><dict><string>a</string></dict></plist>", "<plist><array></plist>",
        "<plist><array><string>a</array></plist>", "<plist><string>&unknown;</string></plist>",
        "{}", "( a, b )", "<!-- ", "<?xml", "<plist><string>a\x1</strin></plist>"}) {
    EXPECT_THROW(read(text), PropertyListError) << text;
  }
}

TEST(XMLPropertyList, RefusesDatesThatLibplistWouldMisread) {
  for (const char* date :
       {"2024-99-01T00:00:00Z", "2024-00-01T00:00:00Z", "2024-01-00T00:00:00Z",
        "2024-01-01T24:00:00Z", "2024-01-01", "", "yesterday-ish text", "-0001-01-01T00:00:00Z",
        "2024-01-01T00:00:00Z ", "2024-<!-- -->01-01T00:00:00Z", "0000-01-01T00:00:00Z"}) {
    auto parse = [&] { readXML("<date>" + std::string(date) + "</date>"); };
    if (std::string_view(date).ends_with("Z ")) {
      EXPECT_NO_THROW(parse());
    } else {
      EXPECT_THROW(parse(), PropertyListError) << date;
    }
  }
}

TEST(XMLPropertyList, RefusesWhatCouldHideAContainer) {
  for (const char* text :
       {"<plist><dict a=\"</dict>\"></dict></plist>",
        "<!DOCTYPE plist [ <!ENTITY a \"b\"> ]><plist>",
        "<!DOCTYPE \"> </dict>\"><plist><true/></plist>", "<plist a=\"></dict>\"><true/></plist>",
        "<?xml \"?></dict>\"?><plist><true/></plist>"}) {
    EXPECT_THROW(read(text), PropertyListError) << text;
  }
}

std::string nestedXML(int depth) {
  std::string text = "<plist>";
  for (int i = 0; i < depth; ++i) text += "<array>";
  for (int i = 0; i < depth; ++i) text += "</array>";
  return text + "</plist>";
}

TEST(XMLPropertyList, IsReadUpToSixtyFourContainersDeep) {
  EXPECT_NO_THROW(read(nestedXML(64)));
  EXPECT_THROW(read(nestedXML(65)), PropertyListError);
  EXPECT_THROW(read(nestedXML(1'000'000)), PropertyListError);
}

// Objects of a binary property list put together by hand, references of one byte.
std::string binaryList(const std::vector<std::string>& objects, int root = 0) {
  std::string bytes = "bplist00";
  std::string offsets;
  for (const std::string& object : objects) {
    offsets += static_cast<char>(bytes.size() >> 8);
    offsets += static_cast<char>(bytes.size());
    bytes += object;
  }
  auto number = [](std::uint64_t value) {
    std::string text;
    for (int shift = 56; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift);
    return text;
  };
  std::uint64_t table = bytes.size();
  bytes += offsets + std::string(6, '\0') + "\2\1";
  return bytes + number(objects.size()) + number(root) + number(table);
}

TEST(BinaryPropertyList, IsReadWhenPutTogetherByHand) {
  EXPECT_EQ(read(binaryList({std::string("\xA2\1\2", 3), "\x51x", "\x09"})),
            Value(Array{"x", true}));
}

TEST(BinaryPropertyList, RefusesAContainerInsideItself) {
  EXPECT_THROW(read(binaryList({std::string("\xA1\0", 2)})), PropertyListError);
  EXPECT_THROW(read(binaryList({"\xA1\1", std::string("\xA1\0", 2)})), PropertyListError);
}

TEST(BinaryPropertyList, RefusesAFewBytesThatStandForBillions) {
  std::vector<std::string> objects;
  for (int i = 1; i <= 40; ++i) {
    objects.push_back(std::string("\xA2") + static_cast<char>(i) + static_cast<char>(i));
  }
  objects.push_back("\x09");
  EXPECT_THROW(read(binaryList(objects)), PropertyListError);
}

TEST(BinaryPropertyList, RefusesALongTextThatIsWrittenOutTooOften) {
  std::string text(60'000, 'x');
  std::string length = {'\x5F', '\x11', static_cast<char>(60'000 >> 8), static_cast<char>(60'000)};
  std::vector<std::string> objects{std::string("\xAF\x11\x01\xFF", 4) + std::string(0x1FF, '\1')};
  objects.push_back(length + text);
  EXPECT_THROW(read(binaryList(objects)), PropertyListError);
}

TEST(BinaryPropertyList, IsReadUpToSixtyFourContainersDeep) {
  auto nested = [](int depth) {
    std::vector<std::string> objects;
    for (int i = 1; i < depth; ++i) objects.push_back(std::string("\xA1") + static_cast<char>(i));
    objects.push_back("\xA0");
    return binaryList(objects);
  };
  EXPECT_NO_THROW(read(nested(64)));
  EXPECT_THROW(read(nested(65)), PropertyListError);
  EXPECT_THROW(read(nested(200)), PropertyListError);
}

TEST(BinaryPropertyList, RefusesBrokenObjects) {
  for (const std::string& object :
       {std::string("\x0F"), std::string("\x15"), std::string("\x30"),
        std::string("\x32\0\0\0\0", 5), std::string("\x70"), std::string("\xC0"),
        std::string("\x00", 1), std::string("\x88"),
        std::string("\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10), std::string("\x5F\x09"),
        std::string("\x6F\x10\xFF"), std::string("\x4F"), std::string("\xA1\x05"),
        std::string("\xAF\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10), std::string("\xD1\0\0", 3),
        std::string("\x33\x7F\xF8\0\0\0\0\0\0", 9), std::string("\x33\x7E\xF8\0\0\0\0\0\0", 9)}) {
    EXPECT_THROW(read(binaryList({object})), PropertyListError)
        << Data::fromString(object).description();
  }
  EXPECT_THROW(read(binaryList({"\xD1\1\1", "\x09"})), PropertyListError);
}

TEST(BinaryPropertyList, RefusesABrokenTrailer) {
  std::string good = binaryList({"\x09"});
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_THROW(read(good.substr(0, length)), PropertyListError);
  }
  for (std::size_t i = good.size() - 26; i < good.size(); ++i) {
    std::string bad = good;
    bad[i] = '\xFF';
    EXPECT_THROW(read(bad), PropertyListError) << i - good.size();
  }
}

TEST(BinaryPropertyList, RefusesReferencesOfAKeyedArchive) {
  EXPECT_THROW(read(binaryList({std::string("\x80\0", 2)})), PropertyListError);
}

}  // namespace
}  // namespace hoist::platform
