// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

#include "platform/Exception.h"
#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "platform/Thread.h"
#include "support/Python.h"
#include "values/ClassRegistry.h"
#include "values/Error.h"

namespace hoist {
namespace {

// A class that uses every field of a keyed coder.
class Parcel : public Object {
 public:
  std::optional<Value> content;
  Ref<Parcel> inner;
  std::int64_t number = 0;
  bool flag = false;
  double weight = 0;
  std::string bytes;

  std::string className() const override { return "Parcel"; }
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override {
    encoder.encodeObject("content", content);
    if (inner) encoder.encodeObject("inner", Value(inner));
    encoder.encodeInteger("number", number);
    encoder.encodeBool("flag", flag);
    encoder.encodeDouble("weight", weight);
    encoder.encodeBytes("$bytes", Data::fromString(bytes).bytes());
  }
  static Ref<Object> decode(Decoder& decoder) {
    auto parcel = make<Parcel>();
    parcel->content = decoder.decodeObject("content", {"NSObject"});
    auto inner = decoder.decodeObject("inner", {"Parcel"});
    if (inner) parcel->inner = inner->objectAs<Parcel>();
    parcel->number = decoder.decodeInteger("number");
    parcel->flag = decoder.decodeBool("flag");
    parcel->weight = decoder.decodeDouble("weight");
    auto bytes = decoder.decodeBytes("$bytes");
    if (bytes) parcel->bytes = bytes->view();
    return parcel;
  }
};

class HeavyParcel : public Parcel {
 public:
  std::string className() const override { return "HeavyParcel"; }
};

class Uncodable : public Object {
 public:
  std::string className() const override { return "Uncodable"; }
  std::string description() const override { return "a thing"; }
};

class KeyedArchive : public testing::Test {
 protected:
  void SetUp() override {
    ClassRegistry::shared().add({.name = "Parcel",
                                 .superclass = "",
                                 .decode = &Parcel::decode,
                                 .create = nullptr,
                                 .classObject = nullptr});
    ClassRegistry::shared().add({.name = "HeavyParcel",
                                 .superclass = "Parcel",
                                 .decode = [](Decoder&) { return make<HeavyParcel>(); },
                                 .create = nullptr,
                                 .classObject = nullptr});
    Error::registerClass();
  }

  static std::string archive(const Value& root) {
    return std::string(KeyedArchiver::archivedDataWithRootObject(root).view());
  }
  static std::optional<Value> unarchive(const std::string& bytes) {
    return KeyedUnarchiver::unarchiveObjectWithData(Data::fromString(bytes));
  }
  static std::optional<Value> unarchive(const std::string& bytes, const AllowedClasses& classes) {
    return KeyedUnarchiver::unarchivedObjectOfClasses(classes, Data::fromString(bytes));
  }
  static Value roundTrip(const Value& value) { return unarchive(archive(value)).value(); }

  // The exception's reason when the archive is refused, else empty.
  static std::string refusal(const std::string& bytes,
                             const AllowedClasses& classes = {"NSObject"}) {
    try {
      unarchive(bytes, classes);
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.name(), Exception::kInvalidArgumentException);
      return exception.reason().value_or("(null)");
    }
    return {};
  }

  // An archive in the original's layout, made by Python: `objects` is the list after "$null", and
  // `cls(names...)` a class; the root is the object at place 1.
  static std::string made(const std::string& objects, const std::string& more = "") {
    return runPython(R"(
def cls(*names): return {'$classname': names[0], '$classes': list(names)}
objects = ['$null'] + )" +
                     objects + R"(
archive = {'$version': 100000, '$archiver': 'NSKeyedArchiver', '$top': {'root': UID(1)},
           '$objects': objects}
)" + more + "\nout(plistlib.dumps(archive, fmt=plistlib.FMT_BINARY))");
  }
};

// Follows the references of an archive as the original's unarchiver does.
constexpr const char* kReader = R"(
p = plistlib.loads(data)
objects = p['$objects']
assert p['$version'] == 100000 and p['$archiver'] == 'NSKeyedArchiver'
assert objects[0] == '$null'
def follow(uid):
    o = objects[uid.data]
    if not isinstance(o, dict): return o
    c = objects[o['$class'].data]
    assert c['$classes'][0] == c['$classname'] and c['$classes'][-1] == 'NSObject'
    name = c['$classname']
    if name == 'NSString': return ('string', o['NS.string'])
    if name == 'NSNull': return None
    if name == 'NSArray': return [follow(u) for u in o['NS.objects']]
    if name == 'NSDictionary':
        return dict(zip([follow(u) for u in o['NS.keys']], [follow(u) for u in o['NS.objects']]))
    if name == 'NSDate':
        return datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=o['NS.time'])
    fields = {k: follow(v) if isinstance(v, UID) else v for k, v in o.items() if k != '$class'}
    return (c['$classes'], fields)
root = follow(p['$top']['root'])
)";

TEST_F(KeyedArchive, OfEveryKindOfValueIsReadByAnotherReader) {
  Value root = Dictionary{
      {"null", Value()},
      {"yes", true},
      {"integer", -42},
      {"least", std::numeric_limits<std::int64_t>::min()},
      {"third", 1.0 / 3},
      {"text", "é€😀"},
      {"$null", "$null"},
      {"data", Data::fromString(std::string("\0\xFF", 2))},
      {"date", Date(1'709'644'029, 500'000'000)},
      {"array", Array{1, "two", Array{}, Dictionary{}}},
  };
  EXPECT_EQ(runPython(std::string(kReader) + R"(
assert root['null'] is None and root['yes'] is True and root['integer'] == -42
assert root['least'] == -2**63 and root['third'] == 1.0 / 3 and root['text'] == 'é€😀'
assert root[('string', '$null')] == ('string', '$null')
assert root['data'] == b'\0\xff'
assert root['date'] == datetime.datetime(2024, 3, 5, 13, 7, 9, 500000)
assert root['array'] == [1, 'two', [], {}]
assert len(root) == 10
out('all of it')
)",
                      archive(root)),
            "all of it");
  EXPECT_EQ(roundTrip(root), root);
}

TEST_F(KeyedArchive, OfAnObjectIsReadByAnotherReader) {
  auto parcel = make<Parcel>();
  parcel->content = "hello";
  parcel->inner = make<HeavyParcel>();
  parcel->number = 7;
  parcel->flag = true;
  parcel->weight = 2.5;
  parcel->bytes = "\xFFraw";
  EXPECT_EQ(runPython(std::string(kReader) + R"(
classes, fields = root
assert classes == ['Parcel', 'NSObject']
assert fields['content'] == 'hello' and fields['number'] == 7 and fields['flag'] is True
assert fields['weight'] == 2.5
assert fields['$$bytes'] == b'\xffraw'
assert fields['inner'][0] == ['HeavyParcel', 'Parcel', 'NSObject']
assert 'content' not in fields['inner'][1]
out('all of it')
)",
                      archive(parcel)),
            "all of it");
}

TEST_F(KeyedArchive, OfAnErrorHasTheOriginalsKeys) {
  auto error = make<Error>("NSPOSIXErrorDomain", 2,
                           Dictionary{{"NSUnderlyingError", make<Error>("Other", -1)}});
  EXPECT_EQ(runPython(std::string(kReader) + R"(
classes, fields = root
assert classes == ['NSError', 'NSObject']
assert fields['NSDomain'] == 'NSPOSIXErrorDomain' and fields['NSCode'] == 2
assert fields['NSUserInfo']['NSUnderlyingError'][1]['NSCode'] == -1
out('all of it')
)",
                      archive(error)),
            "all of it");
  EXPECT_EQ(roundTrip(error), Value(error));
}

TEST_F(KeyedArchive, BringsAnObjectBackFieldByField) {
  auto parcel = make<Parcel>();
  parcel->content = Array{1, Value(), make<HeavyParcel>()};
  parcel->inner = make<Parcel>();
  parcel->inner->number = std::numeric_limits<std::int64_t>::min();
  parcel->flag = true;
  parcel->weight = std::numeric_limits<double>::infinity();
  parcel->bytes = std::string("a\0b", 3);
  auto after = roundTrip(parcel).objectAs<Parcel>();
  ASSERT_TRUE(after);
  EXPECT_EQ(after->content->array()->at(2).className(), "HeavyParcel");
  EXPECT_EQ(after->inner->number, parcel->inner->number);
  EXPECT_TRUE(after->flag);
  EXPECT_FALSE(after->inner->flag);
  EXPECT_EQ(after->weight, parcel->weight);
  EXPECT_EQ(after->bytes, parcel->bytes);
  EXPECT_FALSE(after->inner->content);
}

TEST_F(KeyedArchive, KeepsTheIdentityOfWhatIsShared) {
  auto inner = make<Parcel>();
  Value list = Array{"x"};
  auto after = roundTrip(Array{inner, inner, list, list});
  const Array& array = *after.array();
  EXPECT_EQ(array[0].object(), array[1].object());
  EXPECT_EQ(array[2].array(), array[3].array());
}

TEST_F(KeyedArchive, WritesWhatIsSharedOnce) {
  Value list = Array{"x", "x"};
  EXPECT_EQ(runPython("out(len(plistlib.loads(data)['$objects']))", archive(Array{list, list})),
            "5");  // the marker, two arrays, their class, one text
}

TEST_F(KeyedArchive, NeverTakesANewValueForOneThatIsGone) {
  // Values that live only while they are encoded may follow each other at one address.
  struct Fleeting : Object {
    std::string className() const override { return "Parcel"; }
    bool isCodable() const override { return true; }
    void encodeWithCoder(Encoder& encoder) const override {
      for (int i = 0; i < 100; ++i) encoder.encodeObject(std::to_string(i), Value(Array{i}));
    }
  };
  EXPECT_EQ(runPython(std::string(kReader) + "out(all(root[1][str(i)] == [i] for i in range(100)))",
                      archive(make<Fleeting>())),
            "True");
}

TEST_F(KeyedArchive, OfAnotherWriterIsReadWithItsMutableClasses) {
  auto value = unarchive(made(R"([
    {'NS.keys': [UID(2), UID(3), UID(4), UID(5), UID(6)],
     'NS.objects': [UID(7), UID(9), UID(11), UID(13), UID(15)], '$class': UID(17)},
    'text', 'data', 'date', 'array', 'null',
    {'NS.string': 'été', '$class': UID(8)},
    cls('NSMutableString', 'NSString', 'NSObject'),
    {'NS.data': b'\x00\x01', '$class': UID(10)},
    cls('NSMutableData', 'NSData', 'NSObject'),
    {'NS.time': 731336829.5, '$class': UID(12)},
    cls('NSDate', 'NSObject'),
    {'NS.objects': [UID(2), UID(18), UID(19), UID(20)], '$class': UID(14)},
    cls('NSMutableArray', 'NSArray', 'NSObject'),
    {'$class': UID(16)},
    cls('NSNull', 'NSObject'),
    cls('NSMutableDictionary', 'NSDictionary', 'NSObject'),
    True, 2**63 + 1, 1.5])"));
  const Dictionary& entries = *value.value().dictionary();
  EXPECT_EQ(entries.at("text"), Value("été"));
  EXPECT_EQ(entries.at("data"), Value(Data::fromString(std::string("\0\1", 2))));
  EXPECT_EQ(entries.at("date"), Value(Date(978'307'200 + 731'336'829, 500'000'000)));
  EXPECT_EQ(entries.at("array"),
            Value(Array{"text", true, std::numeric_limits<std::int64_t>::min() + 1, 1.5}));
  EXPECT_TRUE(entries.at("null").isNull());
}

TEST_F(KeyedArchive, InTheXMLFormIsRead) {
  std::string xml =
      "<plist version=\"1.0\"><dict><key>$version</key><integer>100000</integer>"
      "<key>$archiver</key><string>NSKeyedArchiver</string><key>$top</key><dict><key>root</key>"
      "<dict><key>CF$UID</key><integer>1</integer></dict></dict><key>$objects</key><array>"
      "<string>$null</string><string>hello</string></array></dict></plist>";
  EXPECT_EQ(unarchive(xml), Value("hello"));
}

TEST_F(KeyedArchive, ReadsAnUnknownClassAsTheNearestKnownOne) {
  auto value = unarchive(made(R"([
    {'number': 5, '$class': UID(2)}, cls('GiftParcel', 'Surprise', 'Parcel', 'NSObject')])"));
  EXPECT_EQ(value.value().objectAs<Parcel>()->number, 5);
}

TEST_F(KeyedArchive, ReadsNumbersThatAreObjectsAndNumbersOfAnotherKind) {
  auto value = unarchive(made(R"([
    {'number': UID(3), 'flag': 1, 'weight': 3, '$$bytes': UID(4), '$class': UID(2)},
    cls('Parcel', 'NSObject'), 2.75, {'NS.data': b'x', '$class': UID(5)},
    cls('NSMutableData', 'NSData', 'NSObject')])"));
  auto parcel = value.value().objectAs<Parcel>();
  EXPECT_EQ(parcel->number, 2);
  EXPECT_TRUE(parcel->flag);
  EXPECT_EQ(parcel->weight, 3.0);
  EXPECT_EQ(parcel->bytes, "x");
}

TEST_F(KeyedArchive, WithoutARootHoldsNothing) {
  EXPECT_EQ(unarchive(made("[]", "archive['$top'] = {}")), std::nullopt);
  EXPECT_EQ(unarchive(made("[]", "archive['$top'] = {'root': UID(0)}")), std::nullopt);
}

TEST_F(KeyedArchive, TellsTheClassOfItsRootWithoutMakingIt) {
  auto classOf = [](const std::string& bytes) {
    return KeyedUnarchiver(Data::fromString(bytes)).classNameForKey("root");
  };
  EXPECT_EQ(classOf(archive("x")), "NSString");
  EXPECT_EQ(classOf(archive(true)), "NSBoolean");
  EXPECT_EQ(classOf(archive(make<HeavyParcel>())), "HeavyParcel");
  EXPECT_EQ(classOf(made("[{'$class': UID(2)}, cls('Nobody', 'NSObject')]")), "Nobody");
  EXPECT_EQ(classOf(made("[{'$class': UID(2)}, cls('NSMutableArray', 'NSArray')]")), "NSArray");
  EXPECT_EQ(classOf(made("[]", "archive['$top'] = {}")), std::nullopt);
  EXPECT_THROW(classOf(made("[{}]")), Exception);
}

TEST_F(KeyedArchive, MakesOnlyTheClassesThatAreAllowedAndTheirSubclasses) {
  std::string heavy = archive(make<HeavyParcel>());
  EXPECT_TRUE(unarchive(heavy, {"Parcel"}));
  EXPECT_TRUE(unarchive(heavy, {"HeavyParcel"}));
  EXPECT_NE(refusal(heavy, {"NSString"}), "");
  EXPECT_NE(refusal(archive(make<Parcel>()), {"HeavyParcel"}), "");
  EXPECT_NE(refusal(archive("x"), {"NSNumber"}), "");
  EXPECT_NE(refusal(archive(Array{"x"}), {"NSArray"}), "");
  EXPECT_TRUE(unarchive(archive(Array{"x"}), {"NSArray", "NSString"}));
  EXPECT_TRUE(unarchive(archive(true), {"NSNumber"}));
  EXPECT_NE(refusal(archive(1), {"NSBoolean"}), "");
}

TEST_F(KeyedArchive, ChecksASharedListAgainWhereOtherClassesAreAllowed) {
  // The same list is content, where everything is allowed, and then stands where only parcels are.
  auto bytes = made(R"([
    {'content': UID(3), 'inner': UID(3), '$class': UID(2)}, cls('Parcel', 'NSObject'),
    {'NS.objects': [UID(5)], '$class': UID(4)}, cls('NSArray', 'NSObject'), 'x'])");
  EXPECT_NE(refusal(bytes), "");
}

TEST_F(KeyedArchive, RefusesAnUnknownClass) {
  EXPECT_NE(refusal(made("[{'$class': UID(2)}, cls('Nobody', 'NSObject')]")), "");
}

TEST_F(KeyedArchive, RefusesBytesThatAreNone) {
  for (const std::string& bytes :
       {std::string(), std::string("hello"), std::string("bplist00"), std::string(100, '\0'),
        std::string("<plist version=\"1.0\"><string>x</string></plist>"),
        std::string("<plist version=\"1.0\"><dict/></plist>")}) {
    EXPECT_THROW(KeyedUnarchiver(Data::fromString(bytes)), Exception);
    EXPECT_NE(refusal(bytes), "");
  }
}

TEST_F(KeyedArchive, RefusesAnotherLayout) {
  for (const char* change :
       {"archive['$version'] = 99999", "archive['$version'] = 'x'", "del archive['$version']",
        "archive['$objects'] = {}", "del archive['$objects']", "archive['$top'] = []",
        "del archive['$top']", "archive['$top'] = {'root': 'x'}", "archive['$top'] = {'root': 1}",
        "archive['$top'] = {'root': UID(99)}", "archive['$objects'] = []",
        "archive['$top'] = {'root': UID(2**63)}"}) {
    EXPECT_NE(refusal(made("['x']", change)), "") << change;
  }
}

TEST_F(KeyedArchive, RefusesFieldsOfAnotherType) {
  for (const char* objects :
       {"[{'NS.objects': 'x', '$class': UID(2)}, cls('NSArray')]",
        "[{'NS.objects': ['x'], '$class': UID(2)}, cls('NSArray')]",
        "[{'NS.objects': [UID(0)], '$class': UID(2)}, cls('NSArray')]",
        "[{'NS.objects': [UID(7)], '$class': UID(2)}, cls('NSArray')]",
        "[{'$class': UID(2)}, cls('NSArray')]",
        "[{'NS.keys': [UID(3)], 'NS.objects': [], '$class': UID(2)}, cls('NSDictionary'), 'k']",
        "[{'NS.keys': [UID(3)], 'NS.objects': [UID(3)], '$class': UID(2)}, cls('NSDictionary'), 5]",
        "[{'NS.objects': [UID(3)], '$class': UID(2)}, cls('NSDictionary'), 5]",
        "[{'NS.time': 'x', '$class': UID(2)}, cls('NSDate')]",
        "[{'$class': UID(2)}, cls('NSDate')]",
        "[{'NS.data': 'x', '$class': UID(2)}, cls('NSData')]",
        "[{'NS.string': b'x', '$class': UID(2)}, cls('NSString')]",
        "[{'$class': UID(2)}, 'NSString']",
        "[{'$class': UID(2)}, {'$classname': 5}]",
        "[{'$class': UID(2)}, {}]",
        "[{'$class': 'NSString'}]",
        "[{'$class': UID(0)}]",
        "[{'$class': UID(1)}]",
        "[{}]",
        "[[]]",
        "[{'number': 'x', '$class': UID(2)}, cls('Parcel')]",
        "[{'number': UID(2), '$class': UID(2)}, cls('Parcel')]",
        "[{'flag': b'x', '$class': UID(2)}, cls('Parcel')]",
        "[{'weight': 'x', '$class': UID(2)}, cls('Parcel')]",
        "[{'content': 'inline', '$class': UID(2)}, cls('Parcel')]",
        "[{'inner': UID(3), '$class': UID(2)}, cls('Parcel'), 'x']",
        "[{'$$bytes': 'x', '$class': UID(2)}, cls('Parcel')]",
        "[{'NSCode': 1, '$class': UID(2)}, cls('NSError')]"}) {
    EXPECT_NE(refusal(made(objects)), "") << objects;
  }
}

TEST_F(KeyedArchive, RefusesObjectsThatContainThemselves) {
  EXPECT_NE(refusal(made("[{'NS.objects': [UID(1)], '$class': UID(2)}, cls('NSArray')]")), "");
  EXPECT_NE(refusal(made("[{'inner': UID(3), '$class': UID(2)}, cls('Parcel'), "
                         "{'inner': UID(1), '$class': UID(2)}]")),
            "");
}

TEST_F(KeyedArchive, HoldsObjectsUpToSixtyFourDeep) {
  Value value = Array{};
  for (int i = 1; i < 64; ++i) value = Array{value};
  EXPECT_EQ(roundTrip(value), value);
  EXPECT_THROW(archive(Array{value}), Exception);
}

TEST_F(KeyedArchive, RefusesObjectsThatAreTooDeep) {
  std::string bytes = runPython(R"(
depth = 50000
objects = ['$null'] + [{'NS.objects': [UID(i + 2)], '$class': UID(depth + 2)} for i in range(depth)]
objects += [5, {'$classname': 'NSArray', '$classes': ['NSArray', 'NSObject']}]
out(plistlib.dumps({'$version': 100000, '$archiver': 'NSKeyedArchiver', '$top': {'root': UID(1)},
                    '$objects': objects}, fmt=plistlib.FMT_BINARY)))");
  EXPECT_NE(refusal(bytes), "");
}

TEST_F(KeyedArchive, NeedsNoMoreThanTheStackOfAThread) {
#ifdef HOIST_SANITIZED
  GTEST_SKIP() << "sanitizers make frames larger";
#endif
  auto parcel = make<Parcel>();
  for (int i = 1; i < 64; ++i) {
    auto outer = make<Parcel>();
    outer->inner = parcel;
    parcel = outer;
  }
  std::string answer;
  std::atomic<bool> done = false;
  startDetachedThread("archive test", [&] {
    answer = roundTrip(parcel).className();
    done = true;
    done.notify_one();
  });
  done.wait(false);
  EXPECT_EQ(answer, "Parcel");
}

TEST_F(KeyedArchive, RefusesAFewObjectsThatStandForBillions) {
  std::string bytes = made(R"([
    {'NS.objects': [UID(i + 2), UID(i + 2)], '$class': UID(42)} for i in range(40)
    ] + ['x', cls('NSArray', 'NSObject')])");
  EXPECT_NE(refusal(bytes), "");
}

TEST_F(KeyedArchive, RefusesALongTextThatIsReferredToTooOften) {
  std::string bytes = made(R"([
    {'NS.objects': [UID(2)] * 1000, '$class': UID(3)}, 'x' * 100000, cls('NSArray', 'NSObject')])");
  EXPECT_NE(refusal(bytes), "");
}

TEST_F(KeyedArchive, SharesALotWhenItIsHonest) {
  std::string text(200, 'x');
  EXPECT_EQ(roundTrip(Array(10'000, text)).array()->size(), 10'000u);
}

TEST_F(KeyedArchive, RefusesWhatCannotBeArchivedUnlessItMayDescribeIt) {
  Value value = Array{"x", make<Uncodable>(), make<HeavyParcel>(), Error::posix(2)};
  EXPECT_THROW(archive(value), Exception);
  Data described = KeyedArchiver::archivedDataWithRootObject(value, {"Parcel"});
  Value after = KeyedUnarchiver::unarchiveObjectWithData(described).value();
  const Array& array = *after.array();
  EXPECT_EQ(array[1], Value("a thing"));
  EXPECT_EQ(array[2].className(), "HeavyParcel");
  EXPECT_EQ(array[3], Value(Error::posix(2)->description()));
}

TEST_F(KeyedArchive, DescribesWhatIsTooDeepIfItMay) {
  Value value = Array{};
  for (int i = 0; i < 64; ++i) value = Array{value};
  Data described = KeyedArchiver::archivedDataWithRootObject(value, {"Parcel"});
  Value after = KeyedUnarchiver::unarchiveObjectWithData(described).value();
  while (after.array() && !after.array()->empty()) after = Value(after.array()->front());
  EXPECT_EQ(after, Value("()"));
}

TEST_F(KeyedArchive, HoldsSeveralObjectsUnderKeysOfTheirOwn) {
  KeyedArchiver archiver;
  archiver.encodeObject("one", Value("x"));
  archiver.encodeObject("none", std::nullopt);
  archiver.encodeInteger("two", 2);
  KeyedUnarchiver unarchiver(archiver.finishEncoding());
  EXPECT_EQ(unarchiver.decodeString("one"), "x");
  EXPECT_FALSE(unarchiver.containsKey("none"));
  EXPECT_EQ(unarchiver.decodeInteger("two"), 2);
  EXPECT_EQ(unarchiver.decodeInteger("three"), 0);
  EXPECT_EQ(unarchiver.decodeString("three"), std::nullopt);
  EXPECT_THROW(unarchiver.decodeString("two"), DecodeError);
  EXPECT_THROW(unarchiver.decodeInteger("one"), DecodeError);
}

TEST_F(KeyedArchive, SurvivesEveryByteBeingAnother) {
  auto parcel = make<Parcel>();
  parcel->content = Dictionary{{"k", Array{1, "x", Date(5), Data::fromString("y"), Value()}}};
  std::string good = archive(parcel);
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (int flip : {0x01, 0x80, 0xFF}) {
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] ^ flip);
      refusal(bad);
    }
  }
}

}  // namespace
}  // namespace hoist
