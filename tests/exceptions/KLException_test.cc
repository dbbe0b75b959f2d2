// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "exceptions/KLException.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "platform/AssertionHandler.h"
#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"

namespace hoist {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;

KLException ioException() {
  return KLException::exceptionWithName("IO", "disk failed");
}

// An item of the file system of the given type.
class FakeFile : public PXAbstractFile {
 public:
  explicit FakeFile(VnodeType type) : type_(type) {}
  const char* cName() const override { return "b"; }
  const char* cPath() const override { return "/a/b"; }
  std::string name() const override { return "b"; }
  std::string displayName() const override { return "b"; }
  std::string path() const override { return "/a/b"; }
  std::string url() const override { return "file:///a/b"; }
  std::string extension() const override { return ""; }
  VnodeType type() const override { return type_; }

 private:
  VnodeType type_;
};

struct Thing : Object {
  std::string className() const override { return "Thing"; }
};

// ---- Making ----

TEST(KLException, StartsWithoutDetails) {
  auto exception = ioException();
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "disk failed");
  EXPECT_THAT(exception.userInfo(), IsEmpty());
  EXPECT_EQ(exception.className(), "KLException");
  EXPECT_TRUE(KLException::supportsSecureCoding());
}

TEST(KLException, SettersAnswerTheExceptionItself) {
  auto exception = ioException();
  auto& chained = exception.setAPI("open").setCause("why").setFlag(".f").setSoft(true);
  EXPECT_EQ(&chained, &exception);
  EXPECT_TRUE(chained.isSameAs(exception));
}

TEST(KLException, IsCaughtAsTheOneThatWasRaised) {
  auto exception = ioException();
  try {
    exception.raise();
  } catch (const KLException& caught) {
    EXPECT_TRUE(caught.isSameAs(exception));
    EXPECT_FALSE(caught.callStackReturnAddresses().empty());
  }
  try {
    const Exception& base = exception;
    base.raise();
  } catch (const KLException& caught) {
    EXPECT_TRUE(caught.isSameAs(exception));
  }
}

TEST(KLException, CanBeFilledInTheExpressionThatRaisesIt) {
  try {
    KLException::exceptionWithName("Bug", "odd").setCause("why").setLength(3).raise();
  } catch (const KLException& caught) {
    EXPECT_THAT(caught.userInfo(),
                ElementsAre(Pair("Cause", Value("why")), Pair("Length", Value(3))));
  }
}

TEST(KLException, IsFoundInAPlainHandle) {
  auto exception = ioException();
  Exception plain = exception;
  EXPECT_TRUE(KLException::from(plain)->isSameAs(exception));
  EXPECT_FALSE(KLException::from(Exception("IO", "disk failed")));
}

TEST(KLException, TakesTheCurrentErrno) {
  errno = ENOENT;
  auto exception = KLException::errnoWithName("Process", "cannot start");
  EXPECT_EQ(exception.name(), "Process");
  EXPECT_THAT(exception.userInfo(),
              ElementsAre(Pair("ErrDescription", Value("No such file or directory")),
                          Pair("POSIXErr", Value(ENOENT))));
  errno = EACCES;
  exception = KLException::ioErrnoWithReason("cannot open");
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "cannot open");
  EXPECT_EQ(exception.userInfo().at("POSIXErr"), Value(EACCES));
}

// ---- Plain details ----

TEST(KLException, DetailThatIsMissingIsNilText) {
  auto exception = ioException();
  exception.setDetail(std::nullopt, "Key").setAPI(std::nullopt);
  EXPECT_THAT(exception.userInfo(),
              ElementsAre(Pair("API", Value("(nil)")), Pair("Key", Value("(nil)"))));
}

TEST(KLException, DetailThatIsSetAgainIsReplaced) {
  EXPECT_THAT(ioException().setAPI("open").setAPI("close").userInfo(),
              ElementsAre(Pair("API", Value("close"))));
}

TEST(KLException, HexDetailHasFourDigitsOrEight) {
  auto hex = [](std::uint64_t value) {
    return *ioException().setHexDetail(value, "h").userInfo().at("h").string();
  };
  EXPECT_EQ(hex(0), "0x0000");
  EXPECT_EQ(hex(255), "0x00ff");
  EXPECT_EQ(hex(0xFFFF), "0xffff");
  EXPECT_EQ(hex(0x10000), "0x00010000");
  EXPECT_EQ(hex(70000), "0x00011170");
  EXPECT_EQ(hex(0x123456789AULL), "0x123456789a");
  EXPECT_EQ(hex(~std::uint64_t{0}), "0xffffffffffffffff");
}

TEST(KLException, LongHexDetailHasSixteenDigits) {
  auto exception = ioException();
  exception.setLongLongHexDetail(0xABC, "h");
  EXPECT_EQ(exception.userInfo().at("h"), Value("0x0000000000000abc"));
}

TEST(KLException, NumbersAreNumbers) {
  auto exception = ioException();
  exception.setDecimalDetail(-5, "d").setLongLongDetail(LLONG_MIN, "l");
  exception.setFilePosition(LLONG_MAX).setLength(0);
  EXPECT_EQ(exception.userInfo().at("d"), Value(-5));
  EXPECT_EQ(exception.userInfo().at("l"), Value(LLONG_MIN));
  EXPECT_EQ(exception.userInfo().at("Position"), Value(LLONG_MAX));
  EXPECT_EQ(exception.userInfo().at("Length"), Value(0));
}

TEST(KLException, EachSetterHasItsKey) {
  auto exception = ioException();
  exception.setFile("1").setFolder("2").setObject("3").setStrPath("4").setExpected("5");
  exception.setClass("6").setCause("7").setExplanation("8").setAPI("9");
  EXPECT_THAT(
      exception.userInfo(),
      ElementsAre(Pair(".Explain", Value("8")), Pair("API", Value("9")), Pair("Cause", Value("7")),
                  Pair("Class", Value("6")), Pair("Expected", Value("5")), Pair("File", Value("1")),
                  Pair("Folder", Value("2")), Pair("Object", Value("3")),
                  Pair("Path", Value("4"))));
}

TEST(KLException, NamesClassesAndMessages) {
  Thing thing;
  EXPECT_EQ(ioException().setClassOf(thing).userInfo().at("Class"), Value("Thing"));
  EXPECT_EQ(ioException().setMessage("open:").userInfo().at("Message"), Value("open:"));
  EXPECT_EQ(ioException().setMessage("open:", thing).userInfo().at("Message"),
            Value("[Thing open:]"));
}

TEST(KLException, VersionIsReadable) {
  EXPECT_EQ(ioException().setVersion(140556).userInfo().at("Version"), Value("2.2.5.12"));
  EXPECT_EQ(ioException().setVersion(0).userInfo().at("Version"), Value("0.0.0.0"));
  EXPECT_EQ(ioException().setVersion(0xFFFFFFFF).userInfo().at("Version"),
            Value("65535.15.15.255"));
}

// ---- Errors ----

TEST(KLException, POSIXErrorIsNumberAndText) {
  auto exception = ioException();
  exception.setPOSIXErr(EIO, "read");
  EXPECT_THAT(exception.userInfo(), ElementsAre(Pair("API", Value("read")),
                                                Pair("ErrDescription", Value("Input/output error")),
                                                Pair("POSIXErr", Value(EIO))));
}

TEST(KLException, UnknownErrorNumberHasATextToo) {
  EXPECT_EQ(ioException().setPOSIXErr(-7).userInfo().at("ErrDescription"),
            Value("Unknown error -7"));
}

TEST(KLException, ErrorOfThePOSIXDomainGivesItsNumber) {
  auto error = make<Error>(Error::kPOSIXDomain, ENOSPC,
                           Dictionary{{Error::kLocalizedDescription, "full"},
                                      {Error::kLocalizedFailureReason, "no space"}});
  auto exception = KLException::error(error, "IO", "cannot copy item");
  EXPECT_EQ(exception.reason(), "cannot copy item");
  EXPECT_THAT(exception.userInfo(),
              ElementsAre(Pair(".Error", Value(error)), Pair("Description", Value("full")),
                          Pair("ErrDescription", Value("No space left on device")),
                          Pair("Error", Value("no space")), Pair("POSIXErr", Value(ENOSPC))));
}

TEST(KLException, ErrorOfTheOSStatusDomainGivesItsCode) {
  auto exception = ioException().setError(make<Error>(Error::kOSStatusDomain, -43));
  EXPECT_EQ(exception.userInfo().at("OSErr"), Value(-43));
  EXPECT_FALSE(exception.userInfo().contains("POSIXErr"));
  EXPECT_FALSE(exception.userInfo().contains("OSErrName"));
}

TEST(KLException, ErrorOfTheURLDomainGivesItsLocation) {
  Dictionary url = {{Error::kFailingURLString, "file:///a"}};
  EXPECT_EQ(ioException().setError(make<Error>(Error::kURLDomain, -1, url)).userInfo().at("Path"),
            Value("file:///a"));
  EXPECT_FALSE(
      ioException().setError(make<Error>(Error::kURLDomain, -1)).userInfo().contains("Path"));
}

TEST(KLException, ErrorOfAnotherDomainGivesOnlyItself) {
  auto error = make<Error>("Other", 5, Dictionary{{Error::kFailingURLString, "file:///a"}});
  auto exception = ioException().setError(error);
  for (auto key : {"POSIXErr", "OSErr", "Path", "Error"}) {
    EXPECT_FALSE(exception.userInfo().contains(key)) << key;
  }
  EXPECT_EQ(exception.userInfo().at(".Error").object(), error);
}

TEST(KLException, MissingErrorChangesNothing) {
  EXPECT_THAT(ioException().setError(nullptr).userInfo(), IsEmpty());
  EXPECT_THAT(KLException::error(nullptr, "IO", "no").userInfo(), IsEmpty());
}

// ---- Items and paths ----

TEST(KLException, ItemGivesNamePathAndKind) {
  auto typeOf = [](VnodeType type) {
    auto exception = ioException().setFileInfo(FakeFile(type));
    EXPECT_EQ(exception.userInfo().at("Name"), Value("b"));
    EXPECT_EQ(exception.userInfo().at("Path"), Value("/a/b"));
    return exception.userInfo().at("Type");
  };
  EXPECT_EQ(typeOf(VnodeType::Regular), Value("regular file"));
  EXPECT_EQ(typeOf(VnodeType::Directory), Value("directory"));
  EXPECT_EQ(typeOf(VnodeType::SymbolicLink), Value("symblic link"));
  EXPECT_EQ(typeOf(VnodeType::BlockDevice), Value(3));
  EXPECT_EQ(typeOf(VnodeType{77}), Value(77));
}

TEST(KLException, ItemWithoutATypeGivesNameAndPathOnly) {
  EXPECT_THAT(ioException().setFileInfo(FakeFile(VnodeType::None)).userInfo(),
              ElementsAre(Key("Name"), Key("Path")));
}

TEST(KLException, PathObjectGivesItsPath) {
  EXPECT_THAT(ioException().setPathObject(FakeFile(VnodeType::None)).userInfo(),
              ElementsAre(Pair("Path", Value("/a/b"))));
}

TEST(KLException, CPathIsCutAt1024BytesBetweenTwoCharacters) {
  auto path = [](const std::string& path) {
    return *ioException().setCPath(path.c_str()).userInfo().at("Path").string();
  };
  EXPECT_EQ(path("/a"), "/a");
  EXPECT_EQ(path(""), "");
  EXPECT_EQ(path(std::string(1024, 'x')), std::string(1024, 'x'));
  EXPECT_EQ(path(std::string(5000, 'x')), std::string(1024, 'x'));
  EXPECT_EQ(path(std::string(1023, 'x') + "\u00e9"), std::string(1023, 'x'));
  EXPECT_EQ(path(std::string(1022, 'x') + "\u00e9yy"), std::string(1022, 'x') + "\u00e9");
}

TEST(KLException, CPathThatIsNoUTF8IsShown) {
  EXPECT_EQ(ioException().setCPath("/a\xff/b").userInfo().at("Path"), Value("/a\uFFFD/b"));
  // What is cut in the midst of bytes that are no characters stays readable.
  std::string bytes(3000, '\x80');
  EXPECT_EQ(ioException().setCPath(bytes.c_str()).userInfo().at("Path").string()->size(),
            1024u * 3);
}

TEST(KLException, MissingCPathChangesNothing) {
  EXPECT_THAT(ioException().setCPath(nullptr).userInfo(), IsEmpty());
}

// ---- Packages ----

TEST(KLException, PackageTypesHaveNames) {
  const char* names[] = {"Invalid",   "Data",           "List",   "File",
                         "Directory", "DeltaDirectory", "Session"};
  for (std::uint32_t type = 0; type < 7; ++type) {
    EXPECT_EQ(KLException::getNameForPackageType(type), names[type]);
  }
  EXPECT_EQ(KLException::getNameForPackageType(7), "Unknown(7)");
  EXPECT_EQ(KLException::getNameForPackageType(0xFFFFFFFF), "Unknown(-1)");
}

TEST(KLException, PackageGivesNumberAndType) {
  struct Package {
    std::uint32_t number() const { return 4'000'000'000; }
    std::uint32_t type() const { return 3; }
  };
  EXPECT_THAT(ioException().setPackageInfo(Package()).userInfo(),
              ElementsAre(Pair("PkgNumber", Value(4'000'000'000)), Pair("PkgType", Value("File"))));
}

// ---- Classification ----

TEST(KLException, NameDecidesTheClassification) {
  EXPECT_EQ(KLException::preferredLogClassForName("Info"), 0);
  EXPECT_EQ(KLException::preferredLogClassForName("Cancel"), 3);
  EXPECT_EQ(KLException::preferredLogClassForName("Security"), 4);
  EXPECT_EQ(KLException::preferredLogClassForName("Bug"), 9);
  for (auto name : {"IO", "bug", "Process", ""}) {
    EXPECT_EQ(KLException::preferredLogClassForName(name), 5) << name;
  }
}

TEST(KLException, PreferredClassificationOutweighsTheName) {
  auto bug = KLException::exceptionWithName("Bug", "odd");
  EXPECT_EQ(bug.preferredLogClass(), 9);
  EXPECT_EQ(bug.setPreferredLogClass(2).preferredLogClass(), 2);
  EXPECT_EQ(bug.userInfo().at(".LogClass"), Value(2));
  EXPECT_EQ(KLException::preferredLogClassForException(bug), 2);
}

TEST(KLException, PlatformExceptionIsAFailure) {
  EXPECT_EQ(KLException::preferredLogClassForException(Exception("Bug", "odd")), 5);
}

TEST(KLException, DetailsAreClassifiedByTheirKeys) {
  EXPECT_THAT(KLException::userInfoLogClassifications(),
              ElementsAre(Pair("API", 9), Pair("Cause", 9), Pair("Class", 9), Pair("OSErr", 6),
                          Pair("OSErrName", 6), Pair("Object", 9), Pair("POSIXErr", 6),
                          Pair("Path", 6), Pair("PkgNumber", 9), Pair("PkgType", 9)));
}

// ---- Flags ----

TEST(KLException, FlagIsThereOnceItWasSetOrCleared) {
  auto exception = ioException();
  EXPECT_FALSE(exception.hasFlag(".f"));
  exception.clearFlag(".f");
  EXPECT_TRUE(exception.hasFlag(".f"));
  EXPECT_EQ(exception.userInfo().at(".f"), Value(false));
  exception.setFlag(".f");
  EXPECT_EQ(exception.userInfo().at(".f"), Value(true));
  EXPECT_TRUE(exception.setDetail(0, "zero").hasFlag("zero"));
}

TEST(KLException, IsSoftOnceItWasSaidEitherWay) {
  EXPECT_FALSE(ioException().isSoft());
  EXPECT_TRUE(ioException().isHard());
  for (bool soft : {true, false}) {
    auto exception = ioException().setSoft(soft);
    EXPECT_TRUE(exception.isSoft());
    EXPECT_FALSE(exception.isHard());
    EXPECT_EQ(exception.userInfo().at(".SoftError"), Value(soft));
  }
}

// ---- Description ----

TEST(KLException, DescriptionIsNameAndReason) {
  EXPECT_EQ(ioException().description(), "<IO> disk failed");
}

TEST(KLException, DescriptionListsDetailsHiddenOnesIncluded) {
  auto exception = ioException().setSoft(true).setAPI("open").setCause("no luck");
  EXPECT_EQ(exception.description(),
            "<IO> disk failed { .SoftError=1, API=open, Cause='no luck' }");
}

TEST(KLException, DescriptionQuotesBlanksAndTabsButNotLineBreaks) {
  auto described = [](const char* value) {
    return KLException::exceptionWithName("A", "b").setDetail(value, "k").description();
  };
  EXPECT_EQ(described("a\tb"), "<A> b { k='a\tb' }");
  EXPECT_EQ(described("a\u00a0b"), "<A> b { k='a\u00a0b' }");
  EXPECT_EQ(described("a\nb"), "<A> b { k=a\nb }");
  EXPECT_EQ(described(""), "<A> b { k= }");
}

// ---- Archives ----

TEST(KLException, RemadeFromAnArchiveIsReadButTakesNoMoreDetails) {
  KLException::registerClass();
  auto original = ioException().setPOSIXErr(EIO).setSoft(true);
  auto data = KeyedArchiver::archivedDataWithRootObject(original.state());
  auto remade =
      KeyedUnarchiver::unarchivedObjectOfClasses({"NSException"}, data)->objectAs<ExceptionState>();
  ASSERT_TRUE(remade);
  auto exception = KLException::from(Exception(remade));
  ASSERT_TRUE(exception);
  EXPECT_EQ(exception->name(), "IO");
  EXPECT_EQ(exception->reason(), "disk failed");
  EXPECT_TRUE(exception->isSoft());
  EXPECT_EQ(exception->userInfo(), original.userInfo());
  exception->setAPI("open").setPreferredLogClass(2);
  EXPECT_EQ(exception->userInfo(), original.userInfo());
  EXPECT_EQ(exception->preferredLogClass(), 5);
}

// ---- Assertions ----

TEST(Assertion, IsReportedAndRaisesTheObject) {
  auto exception = ioException();
  testing::internal::CaptureStderr();
  try {
    failAssertionInMethod("-[Thing open:]", &exception, "Thing.cc", 12, "handle is 7");
  } catch (const KLException& caught) {
    EXPECT_TRUE(caught.isSameAs(exception));
  }
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::EndsWith("-[Thing open:], Thing.cc:12: handle is 7\n"));
}

TEST(Assertion, WithoutAnObjectRaisesAFailureOfItsOwnType) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(failAssertionInMethod("open", nullptr, "Thing.cc", 12, "no"), AssertionFailure);
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace hoist
