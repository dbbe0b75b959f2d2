// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The programs of the guide, with the real daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "connection/KLEndpointConnection.h"
#include "connection/protocols/KLComponentMessaging.h"
#include "hoistctl/HoistClient.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

constexpr unsigned kUser = 20001;
const std::string kBin = HOIST_BUILD_DIR "/bin";

// As a client of that helper declares it for itself.
class Greeting : public virtual KLComponentMessaging {
 public:
  virtual void greet(std::string name, xpc::Reply<std::string> reply) = 0;
};
const xpc::Protocol& greetingProtocol() {
  static const auto& protocol =
      *new xpc::Protocol(xpc::Protocol("Greeting")
                             .adopts(klComponentMessagingProtocol())
                             .method<&Greeting::greet>("greet:withReply:", {"name"}, {"greeting"}));
  return protocol;
}

class Examples : public testing::Test {
 protected:
  ~Examples() override { std::filesystem::remove_all(Sandbox::shared().folder() + "/examples"); }
  std::string makeHelper(const std::string& program, unsigned user = kUser) {
    return Sandbox::shared().makeHelper("examples", kBin + "/" + program, user);
  }
  ProgramResult asUser(std::vector<std::string> command) {
    std::vector<std::string> arguments{"--reuid=20001", "--regid=20001", "--clear-groups"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return runProgram("/usr/bin/setpriv", arguments);
  }

  RunningHoist hoist_;
};

TEST_F(Examples, TheClientRunsACommand) {
  auto helper = makeHelper("KelvoHelper");
  auto result = asUser({kBin + "/example-client", helper, "capture"});
  EXPECT_EQ(result.output, "finished\n") << hoist_.log();
  EXPECT_EQ(asUser({kBin + "/example-client", helper, "levitate"}).output,
            "no helper was launched\n");
}

TEST_F(Examples, TheClientInPythonRunsACommand) {
  auto helper = makeHelper("KelvoHelper");
  std::string script = HOIST_SOURCE_DIR "/examples/client/client.py";
  EXPECT_EQ(asUser({"/usr/bin/python3", script, helper, "capture"}).output, "finished\n")
      << hoist_.log();
  EXPECT_EQ(asUser({"/usr/bin/python3", script, helper, "levitate"}).output,
            "no helper was launched\n");
}

TEST_F(Examples, TheHelperGreets) {
  ctl::HoistClient client("com.kelvo.hoist");
  auto launched = client.launch(makeHelper("example-hello"), "greet", {});
  ASSERT_TRUE(launched.endpoint) << hoist_.log();
  auto helper = KLEndpointConnection::initWithEndpoint(
      *launched.endpoint, "hello", xpc::Interface::interfaceWithProtocol(greetingProtocol()));
  std::string greeting;
  EXPECT_TRUE(helper->performSynchronousBlock([&](const xpc::Proxy& proxy) {
    proxy.send<&Greeting::greet>("Ada", [&](std::string text) { greeting = std::move(text); });
  }));
  EXPECT_EQ(greeting, "Hello Ada, user 0 speaking");
}

}  // namespace
}  // namespace hoist
