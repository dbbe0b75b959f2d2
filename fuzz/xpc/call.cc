// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any frame as a call of an object whose operations take every type that can cross. What is
// answered must be a well-formed message.
#include <fcntl.h>

#include "platform/Trouble.h"
#include "platform/xpc/CallHandler.h"
#include "platform/xpc/testing/TestService.h"

namespace {

using namespace hoist;

xpc::CallHandler& handler() {
  static auto& instance = *[] {
    platform::setTroubleHook([](platform::Severity, std::string_view) {});
    Error::registerClass();
    auto answer = [](dbus::OutgoingMessage message) {
      dbus::Message::parse(std::move(message.bytes), std::move(message.descriptors));
    };
    auto made = new xpc::CallHandler(answer, {":1.1", 0, true, [](std::string_view) {}},
                                     "com.kelvo.test", 1 << 20);
    auto interface = xpc::Interface::interfaceWithProtocol(xpc::talkingProtocol());
    interface->setClasses({"NSDictionary", "NSArray", "NSString", "NSNumber", "NSData", "NSDate",
                           "NSNull", "NSError", "NSFileHandle"},
                          "echoDictionary:date:reply:", 0, false);
    made->setInterface(interface);
    auto talker = make<xpc::Talker>();
    // No operation may wait here.
    talker->openGate();
    made->setObject(talker);
    return made;
  }();
  return instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  dbus::FileDescriptors descriptors;
  for (int count = data[0] & 3; count > 0; --count) {
    descriptors.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  }
  try {
    handler().handle(dbus::Message::parse({data + 1, data + size}, std::move(descriptors)));
  } catch (const dbus::ProtocolError&) {
  }
  return 0;
}
