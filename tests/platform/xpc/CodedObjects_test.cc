// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Objects that cross as their class's name and fields, and what keeps the others out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/dbus/MessageReader.h"
#include "platform/dbus/Names.h"
#include "platform/xpc/FileHandle.h"
#include "platform/xpc/testing/RawPeer.h"
#include "platform/xpc/testing/TestService.h"
#include "values/ClassRegistry.h"

namespace hoist::xpc {
namespace {

using dbus::MessageWriter;
using testing::HasSubstr;

// A node of a chain: a class that holds one of its own.
class Node : public Object {
 public:
  Node(std::int64_t number, Ref<Node> parent) : number_(number), parent_(std::move(parent)) {}

  std::string className() const override { return "Node"; }
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override {
    encoder.encodeInteger("number", number_);
    encoder.encodeBool("odd", number_ % 2 != 0);
    encoder.encodeDouble("half", static_cast<double>(number_) / 2);
    encoder.encodeBytes("bytes", Data::fromString("bytes").bytes());
    encoder.encodeObject("nothing", std::nullopt);
    encoder.encodeObject("parent", parent_ ? std::optional(Value(parent_)) : std::nullopt);
  }
  static Ref<Object> decode(Decoder& decoder) {
    auto parent = decoder.decodeObject("parent", {"Node"});
    EXPECT_FALSE(decoder.containsKey("nothing"));
    EXPECT_EQ(decoder.decodeInteger("nothing"), 0);
    EXPECT_EQ(decoder.decodeObject("nothing", {"Node"}), std::nullopt);
    auto number = decoder.decodeInteger("number");
    EXPECT_EQ(decoder.decodeBool("odd"), number % 2 != 0);
    EXPECT_EQ(decoder.decodeDouble("half"), static_cast<double>(number) / 2);
    EXPECT_EQ(decoder.decodeBytes("bytes"), Data::fromString("bytes"));
    return make<Node>(number, parent ? parent->objectAs<Node>() : nullptr);
  }
  static void registerClass() {
    ClassRegistry::shared().add({.name = "Node", .decode = &Node::decode});
  }

  std::size_t depth() const { return parent_ ? parent_->depth() + 1 : 0; }

 private:
  std::int64_t number_;
  Ref<Node> parent_;
};

Ref<Node> chain(int length) {
  Ref<Node> last;
  for (int number = 0; number < length; ++number) last = make<Node>(number, last);
  return last;
}

class CodedObjects : public testing::Test {
 protected:
  CodedObjects() { Node::registerClass(); }

  // What comes back of a dictionary when the service admits these classes.
  Outcome<Dictionary, Date> echo(const Dictionary& dictionary, AllowedClasses classes) {
    service_.setCustomise([classes](Interface& interface) {
      interface.setClasses(classes, "echoDictionary:date:reply:", 0, false);
      interface.setClasses(classes, "echoDictionary:date:reply:", 0, true);
    });
    connection_ = service_.connect();
    Outcome<Dictionary, Date> outcome;
    ask<&Talking::echoDictionary>(connection_, outcome, dictionary, Date());
    return outcome;
  }
  std::string refusal(const Dictionary& dictionary, AllowedClasses classes) {
    auto outcome = echo(dictionary, std::move(classes));
    return outcome.error() ? *outcome.error()->localizedDescription() : "accepted";
  }

  TestService service_;
  Ref<Connection> connection_;
};

TEST_F(CodedObjects, CrossWithEveryKindOfField) {
  auto outcome = echo({{"node", Value(chain(3))}}, {"NSDictionary", "Node"});
  auto node = std::get<0>(outcome.values()).at("node").objectAs<Node>();
  ASSERT_TRUE(node);
  EXPECT_EQ(node->depth(), 2u);
}

TEST_F(CodedObjects, OfAClassThatIsNotAllowedAreRefusedAtAnyDepth) {
  EXPECT_THAT(refusal({{"node", Value(chain(1))}}, {"NSDictionary"}), HasSubstr("class Node"));
  Dictionary nested{{"a", Array{Dictionary{{"b", Array{Value(chain(1))}}}}}};
  EXPECT_THAT(refusal(nested, {"NSDictionary", "NSArray"}), HasSubstr("class Node"));
  EXPECT_EQ(refusal(nested, {"NSDictionary", "NSArray", "Node"}), "accepted");
}

TEST_F(CodedObjects, ValuesCountAsObjectsOfTheirClasses) {
  AllowedClasses some{"NSDictionary", "NSArray", "NSString", "NSNumber"};
  EXPECT_EQ(refusal({{"a", Array{1, 2.5, "text", true}}}, some), "accepted");
  EXPECT_THAT(refusal({{"a", Array{Data()}}}, some), HasSubstr("class NSData"));
  EXPECT_THAT(refusal({{"a", Date()}}, some), HasSubstr("class NSDate"));
  EXPECT_THAT(refusal({{"a", Value()}}, some), HasSubstr("class NSNull"));
  EXPECT_THAT(refusal({{"a", Array{1}}}, {"NSDictionary", "NSNumber"}), HasSubstr("class NSArray"));
  EXPECT_THAT(refusal({}, {"NSArray"}), HasSubstr("class NSDictionary"));
}

TEST_F(CodedObjects, OfASubclassOfAnAllowedClassAreAdmitted) {
  ClassRegistry::shared().add(
      {.name = "Leaf", .superclass = "Node", .decode = [](Decoder& decoder) -> Ref<Object> {
         return Node::decode(decoder);
       }});
  class Leaf : public Node {
   public:
    Leaf() : Node(1, nullptr) {}
    std::string className() const override { return "Leaf"; }
  };
  EXPECT_EQ(refusal({{"leaf", Value(Ref<Object>(make<Leaf>()))}}, {"NSDictionary", "Node"}),
            "accepted");
  EXPECT_NE(refusal({{"node", Value(chain(1))}}, {"NSDictionary", "Leaf"}), "accepted");
}

TEST_F(CodedObjects, OfAClassThatThisProgramDoesNotKnowAreRefused) {
  ClassRegistry::shared().remove("Node");
  EXPECT_THAT(refusal({{"node", Value(chain(1))}}, {"NSDictionary", "Node"}), HasSubstr("Node"));
}

TEST_F(CodedObjects, WhoseClassRaisesAreRefusedWithoutItsWords) {
  ClassRegistry::shared().add({.name = "Node", .decode = [](Decoder&) -> Ref<Object> {
                                 throw std::runtime_error("/secret/path is missing");
                               }});
  auto text = refusal({{"node", Value(chain(1))}}, {"NSDictionary", "Node"});
  EXPECT_THAT(text, HasSubstr("class Node could not be made"));
  EXPECT_THAT(text, testing::Not(HasSubstr("secret")));
}

TEST_F(CodedObjects, WithAFieldOfAnotherTypeAreRefused) {
  ClassRegistry::shared().add({.name = "Node", .decode = [](Decoder& decoder) -> Ref<Object> {
                                 decoder.decodeInteger("bytes");
                                 return nullptr;
                               }});
  EXPECT_THAT(refusal({{"node", Value(chain(1))}}, {"NSDictionary", "Node"}),
              HasSubstr("the field bytes is of another type"));
}

TEST_F(CodedObjects, MayCarryDescriptors) {
  auto pipe = makePipe();
  auto handle = make<FileHandle>(std::move(pipe.writing));
  Dictionary dictionary{{"file", Value(Ref<Object>(handle))}};
  EXPECT_THAT(refusal(dictionary, {"NSDictionary"}), HasSubstr("class NSFileHandle"));
  auto outcome = echo(dictionary, {"NSDictionary", "NSFileHandle"});
  EXPECT_TRUE(std::get<0>(outcome.values()).at("file").objectAs<FileHandle>());
}

TEST_F(CodedObjects, NestedTooDeeplyFailAtTheSenderAndInAForeignMessageWithAnError) {
  EXPECT_NE(refusal({{"node", Value(chain(40))}}, {"NSDictionary", "Node"}), "accepted");
  // The protocol's own 64 levels: such a frame breaks a rule of D-Bus.
  EXPECT_EQ(refusal({{"node", Value(chain(12))}}, {"NSDictionary", "Node"}), "accepted");
}

TEST_F(CodedObjects, AreWrittenAsTheirClassNameAndFields) {
  RawPeer peer(service_.socketPath());
  peer.authenticate();
  peer.send(rawCall({.member = "echoDictionary_date_reply_", .signature = "a{sv}d"}, 1,
                    [](MessageWriter& writer) {
                      writer.openArray();
                      writer.openDictEntry();
                      writer.appendString("date");
                      writer.openVariant("(sa{sv})");
                      writer.openStruct();
                      writer.appendString("NSDate");
                      writer.openArray();
                      writer.openDictEntry();
                      writer.appendString("seconds");
                      writer.openVariant("d");
                      writer.appendDouble(1.5);
                      writer.close();
                      writer.close();
                      writer.close();
                      writer.close();
                      writer.close();
                      writer.close();
                      writer.close();
                      writer.appendDouble(0);
                    }));
  auto answer = peer.readMessage();
  ASSERT_TRUE(answer);
  dbus::MessageReader reader(*answer);
  reader.enterArray();
  reader.enterDictEntry();
  EXPECT_EQ(reader.readString(), "date");
  EXPECT_EQ(reader.enterVariant(), "(sa{sv})");
  reader.enterStruct();
  EXPECT_EQ(reader.readString(), "NSDate");
  reader.enterArray();
  reader.enterDictEntry();
  EXPECT_EQ(reader.readString(), "seconds");
  EXPECT_EQ(reader.enterVariant(), "d");
  EXPECT_EQ(reader.readDouble(), 1.5);
}

TEST(Interface, RefusesClassesForAnArgumentThatDoesNotExist) {
  auto interface = Interface::interfaceWithProtocol(talkingProtocol());
  EXPECT_THROW(interface->setClasses({}, "nothing:", 0, false), std::logic_error);
  EXPECT_THROW(interface->setClasses({}, "note:", 1, false), std::logic_error);
  EXPECT_THROW(interface->setClasses({}, "note:", 0, true), std::logic_error);
}

TEST(Protocol, RefusesADeclarationThatDoesNotFitItsFunction) {
  EXPECT_THROW(Protocol("P").method<&Talking::note>("note:", {}), std::logic_error);
  EXPECT_THROW(Protocol("P").method<&Talking::note>("note", {"text"}), std::logic_error);
  EXPECT_THROW(Protocol("P").method<&Talking::keep>("keep:", {"text"}, {"text"}), std::logic_error);
}

TEST(Protocol, KnowsItsOperationsAndWhatItAdopts) {
  const auto& protocol = talkingProtocol();
  EXPECT_EQ(protocol.interfaceName(), "com.kelvo.Talking");
  EXPECT_TRUE(protocol.conformsTo(greetingProtocol()));
  EXPECT_TRUE(protocol.conformsTo(protocol));
  EXPECT_FALSE(greetingProtocol().conformsTo(protocol));
  const Method* keep = protocol.methodWithSelector("keep:reply:");
  ASSERT_TRUE(keep);
  EXPECT_EQ(keep->member, "keep_reply_");
  EXPECT_EQ(protocol.methodWithMember("barrierWithCompletion_")->interfaceName,
            "com.kelvo.Greeting");
  EXPECT_EQ(protocol.methodWithSelector("nothing"), nullptr);
  const Method* nilable = protocol.methodWithSelector("echoText:data:file:object:reply:");
  EXPECT_EQ(nilable->argumentSignature, "asaayaha(sa{sv})");
  EXPECT_TRUE(nilable->arguments[0].nilable);
  EXPECT_EQ(nilable->arguments[3].className, "NSError");
}

}  // namespace
}  // namespace hoist::xpc
