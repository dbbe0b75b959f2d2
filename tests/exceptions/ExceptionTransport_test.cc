// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "exceptions/ExceptionTransport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/AssertionHandler.h"
#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "support/Python.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class Thing : public Object {
 public:
  std::string className() const override { return "Thing"; }
  std::string description() const override { return "a thing"; }
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override { encoder.encodeInteger("n", 1); }
};

class ExceptionTransport : public testing::Test {
 protected:
  ExceptionTransport() {
    KLException::registerClass();
    Error::registerClass();
  }
  static KLException ioException() { return KLException::exceptionWithName("IO", "disk failed"); }
  static Exception plainException() { return Exception("NSRangeException", "beyond bounds"); }
  static Exception transported(const Exception& exception) {
    return exceptionFromData(dataForException(exception)).value();
  }
  static Data archiveOf(const Value& root) {
    return KeyedArchiver::archivedDataWithRootObject(root);
  }
  static std::string python(const std::string& script, const Data& archive) {
    return runPython(script, archive.view());
  }

  LogRecorder log_;
};

TEST_F(ExceptionTransport, TellsAKLExceptionFromAPlatformException) {
  KLException own = ioException();
  ASSERT_TRUE(asKLException(own));
  EXPECT_TRUE(asKLException(own)->isSameAs(own));
  EXPECT_FALSE(asKLException(plainException()));
}

TEST_F(ExceptionTransport, TellsASoftExceptionFromAHardOne) {
  EXPECT_FALSE(asSoftException(ioException()));
  EXPECT_TRUE(asSoftException(ioException().setSoft(true)));
  // A flag that was cleared is there all the same.
  EXPECT_TRUE(asSoftException(ioException().setSoft(false)));
  EXPECT_FALSE(asSoftException(plainException()));
  EXPECT_FALSE(asSoftException(Exception("IO", "soft?", {{".SoftError", true}})));
}

TEST_F(ExceptionTransport, CarriesNameReasonAndDetails) {
  Exception after = transported(ioException().setPOSIXErr(5).setSoft(true));
  EXPECT_EQ(after.name(), "IO");
  EXPECT_EQ(after.reason(), "disk failed");
  EXPECT_EQ(detailOf(after, "POSIXErr"), "5");
  EXPECT_EQ(detailOf(after, "ErrDescription"), "Input/output error");
  EXPECT_EQ(after.className(), "KLException");
  auto soft = asSoftException(after);
  ASSERT_TRUE(soft);
  EXPECT_TRUE(soft->hasFlag(detail_key::SoftError));
  EXPECT_EQ(soft->preferredLogClass(), classification::Failure);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExceptionTransport, NeedsNobodyToHaveRegisteredTheClasses) {
  auto forget = [] {
    for (auto name : {"KLException", "NSException", "NSError"}) {
      ClassRegistry::shared().remove(name);
    }
  };
  forget();
  Data data = dataForException(ioException().setError(Error::posix(2, "/gone")));
  forget();
  auto after = exceptionFromData(data);
  ASSERT_TRUE(after);
  EXPECT_EQ(after->className(), "KLException");
  EXPECT_EQ(after->userInfo().at(".Error").objectAs<Error>()->code(), 2);
}

TEST_F(ExceptionTransport, CarriesTheExceptionsOwnClassification) {
  auto after = asKLException(transported(ioException().setPreferredLogClass(2)));
  EXPECT_EQ(after->preferredLogClass(), 2u);
}

TEST_F(ExceptionTransport, CarriesAPlatformException) {
  Exception after = transported(Exception("NSRangeException", std::nullopt, {{"k", 1}}));
  EXPECT_EQ(after.className(), "NSException");
  EXPECT_EQ(after.reason(), std::nullopt);
  EXPECT_EQ(detailOf(after, "k"), "1");
  EXPECT_FALSE(asKLException(after));
}

TEST_F(ExceptionTransport, CarriesEveryKindOfDetail) {
  auto error = Error::posix(2, "/gone");
  KLException before = ioException();
  before.setDetail(Value("text é"), "string")
      .setDetail(Value(-1), "integer")
      .setDetail(Value(0.1), "double")
      .setDetail(Value(true), "boolean")
      .setDetail(Value(Data::fromString("x")), "data")
      .setDetail(Value(Date(1'709'644'029, 250'000'000)), "date")
      .setDetail(Value(Array{1, Value(), Array{}}), "array")
      .setDetail(Value(Dictionary{{"k", Dictionary{}}}), "dictionary")
      .setDetail(Value(), "null")
      .setDetail(std::nullopt, "absent")
      .setDetail(Value(plainException().state()), "exception")
      .setError(error);
  Exception after = transported(before);
  for (const auto& [key, value] : before.userInfo()) {
    if (key == "exception") continue;
    ASSERT_TRUE(after.userInfo().contains(key)) << key;
    EXPECT_EQ(after.userInfo().at(key), value) << key;
  }
  auto inner = after.userInfo().at("exception").objectAs<ExceptionState>();
  ASSERT_TRUE(inner);
  EXPECT_EQ(inner->reason, "beyond bounds");
  EXPECT_EQ(after.userInfo().at(".Error").objectAs<Error>()->code(), 2);
}

TEST_F(ExceptionTransport, CarriesTheCausesOfAnError) {
  auto cause = make<Error>("Domain", 1, Dictionary{{"exception", plainException().state()}});
  auto error = make<Error>("Domain", 2, Dictionary{{"NSUnderlyingError", cause}});
  Exception after = transported(ioException().setError(error));
  auto outer = after.userInfo().at(".Error").objectAs<Error>();
  auto inner = outer->userInfo().at("NSUnderlyingError").objectAs<Error>();
  EXPECT_EQ(inner->userInfo().at("exception").className(), "NSException");
}

TEST_F(ExceptionTransport, CarriesADescriptionOfWhatTheOtherEndWouldNotMake) {
  ClassRegistry::shared().add({.name = "Thing",
                               .superclass = "",
                               .decode = [](Decoder&) { return make<Thing>(); },
                               .create = nullptr,
                               .classObject = nullptr});
  Exception after = transported(ioException().setObject(Value(make<Thing>())));
  EXPECT_EQ(after.userInfo().at("Object"), Value("a thing"));
}

TEST_F(ExceptionTransport, LeavesTheDetailsOfARemadeExceptionAsTheyAre) {
  auto after = asKLException(transported(ioException().setAPI(Value("open"))));
  after->setAPI(Value("close")).setFlag(".new").setPOSIXErr(1);
  EXPECT_EQ(detailOf(*after, "API"), "open");
  EXPECT_FALSE(after->hasFlag(".new"));
  EXPECT_EQ(after->userInfo().size(), 1u);
}

TEST_F(ExceptionTransport, CanBeCarriedOnOnceMore) {
  Exception after = transported(transported(ioException().setPOSIXErr(5).setSoft(true)));
  EXPECT_EQ(detailOf(after, "POSIXErr"), "5");
  EXPECT_TRUE(asSoftException(after));
}

TEST_F(ExceptionTransport, WritesAnArchiveInTheOriginalsLayout) {
  EXPECT_EQ(python(R"(
p = plistlib.loads(data)
o = p['$objects']
root = o[p['$top']['root'].data]
assert o[root['$class'].data]['$classes'] == ['KLException', 'NSException', 'NSObject']
assert o[root['NS.name'].data] == 'IO' and o[root['NS.reason'].data] == 'disk failed'
info = o[root['NS.userinfo'].data]
assert [o[u.data] for u in info['NS.keys']] == ['ErrDescription', 'POSIXErr']
assert [o[u.data] for u in info['NS.objects']] == ['Input/output error', 5]
out('all of it')
)",
                   dataForException(ioException().setPOSIXErr(5))),
            "all of it");
}

TEST_F(ExceptionTransport, ReadsTheArchiveOfAnotherWriter) {
  std::string archive = runPython(R"(
objects = ['$null',
  {'NS.name': UID(3), 'NS.reason': UID(4), 'NS.userinfo': UID(5), '$class': UID(2)},
  {'$classname': 'AppException', '$classes': ['AppException', 'KLException', 'NSException',
                                              'NSObject']},
  'IO', 'disk failed',
  {'NS.keys': [UID(6)], 'NS.objects': [UID(8)], '$class': UID(7)},
  '.SoftError',
  {'$classname': 'NSMutableDictionary', '$classes': ['NSMutableDictionary', 'NSDictionary',
                                                     'NSObject']},
  True]
out(plistlib.dumps({'$version': 100000, '$archiver': 'NSKeyedArchiver', '$top': {'root': UID(1)},
                    '$objects': objects}, fmt=plistlib.FMT_BINARY))
)");
  auto after = exceptionFromData(Data::fromString(archive));
  ASSERT_TRUE(after);
  EXPECT_EQ(after->name(), "IO");
  EXPECT_TRUE(asSoftException(*after));
}

TEST_F(ExceptionTransport, AnswersNothingForNothing) {
  EXPECT_EQ(exceptionFromData(std::nullopt), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExceptionTransport, AnswersNothingForAStringAndSaysWhatItWas) {
  EXPECT_FALSE(exceptionFromData(archiveOf("hello")));
  EXPECT_THAT(log_.texts(classification::Debug),
              ElementsAre("+[NSException(KLException) exceptionFromData:] exception object was "
                          "actually a NSString"));
  EXPECT_EQ(log_.lines().size(), 1u);
}

TEST_F(ExceptionTransport, AnswersNothingForAnObjectOfAnotherClassWithoutMakingIt) {
  bool made = false;
  ClassRegistry::shared().add({.name = "Thing",
                               .superclass = "",
                               .decode = [&](Decoder&) -> Ref<Object> {
                                 made = true;
                                 return make<Thing>();
                               },
                               .create = nullptr,
                               .classObject = nullptr});
  EXPECT_FALSE(exceptionFromData(archiveOf(make<Thing>())));
  EXPECT_FALSE(made);
  EXPECT_THAT(log_.texts(classification::Debug), ElementsAre(testing::EndsWith("a Thing")));
}

TEST_F(ExceptionTransport, AnswersNothingForAnArchiveOfNothing) {
  EXPECT_FALSE(exceptionFromData(KeyedArchiver().finishEncoding()));
  EXPECT_THAT(log_.texts(classification::Debug), ElementsAre(testing::EndsWith("a (null)")));
}

TEST_F(ExceptionTransport, RaisesInvalidArgumentForBytesThatAreNoArchive) {
  for (const char* bytes : {"", "hello", "bplist00", "<plist><string>x</string></plist>"}) {
    try {
      exceptionFromData(Data::fromString(bytes));
      ADD_FAILURE() << bytes;
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.name(), Exception::kInvalidArgumentException);
    }
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExceptionTransport, RaisesInvalidArgumentForADetailThatItWouldNotMake) {
  auto state = make<ExceptionState>();
  state->userInfo.emplace("Object", make<Thing>());
  EXPECT_THROW(exceptionFromData(archiveOf(state)), Exception);
}

TEST_F(ExceptionTransport, SurvivesEveryByteBeingAnother) {
  Data good = dataForException(ioException().setError(Error::posix(2, "/gone")).setSoft(true));
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (int flip : {0x01, 0x20, 0xFF}) {
      std::vector<std::uint8_t> bytes(good.bytes().begin(), good.bytes().end());
      bytes[i] = static_cast<std::uint8_t>(bytes[i] ^ flip);
      try {
        exceptionFromData(Data(bytes));
      } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), Exception::kInvalidArgumentException);
      }
    }
  }
}

TEST_F(ExceptionTransport, RaisesWhileFailuresDoNotPersist) {
  EXPECT_FALSE(failuresPersist());
  KLException own = ioException();
  EXPECT_TRUE(raisedBy([&] { raiseOrPersist(own); }).isSameAs(own));
  // As a KLException also when it is passed as a plain handle.
  EXPECT_TRUE(raisedBy([&] { raiseOrPersist(Exception(own.state())); }).isSameAs(own));
  EXPECT_THROW(raiseOrPersist(plainException()), Exception);
  EXPECT_THROW(raiseOrPersist(AssertionFailure("x")), AssertionFailure);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ExceptionTransport, LogsWhileFailuresPersist) {
  setFailuresPersist(true);
  raiseOrPersist(ioException());
  raiseOrPersist(plainException());
  setFailuresPersist(false);
  EXPECT_THAT(log_.texts(classification::Warning), ElementsAre("Ignored failures"));
  auto line = Logger::logLineForKey("ShePersisted");
  ASSERT_TRUE(line);
  std::vector<std::string> entries;
  for (const LoggedLine& logged : log_.lines()) {
    if (logged.classification == classification::Failure) {
      entries.push_back(logged.text);
      EXPECT_THAT(logged.line, StartsWith(line->description() + "."));
    }
  }
  EXPECT_EQ(entries.size(), 2u);
  EXPECT_THAT(entries, ElementsAre(HasSubstr("disk failed"), HasSubstr("beyond bounds")));
}

}  // namespace
}  // namespace hoist
