// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The programs of the guide, with the real daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

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

// The client in Node with what it takes from npm beside it, which is where Node looks. Installed
// once for a build; again when another version is wanted.
class ExamplesInNode : public Examples {
 protected:
  // Before there is a sandbox: whoever resolves names for npm may be found through /run.
  static void SetUpTestSuite() {
    namespace fs = std::filesystem;
    fs::create_directories(kFolder);
    for (std::string file : {"client.js", "package.json"}) {
      fs::copy_file(kSources + file, kFolder + file, fs::copy_options::overwrite_existing);
    }
    const std::string lock = "package-lock.json";
    // What npm writes when all is in its place.
    const std::string done = kFolder + "node_modules/.package-lock.json";
    if (fs::exists(done) &&
        runProgram("/usr/bin/cmp", {kSources + lock, kFolder + lock}).status == 0) {
      return;
    }
    fs::remove(done);
    fs::copy_file(kSources + lock, kFolder + lock, fs::copy_options::overwrite_existing);
    // The system's Node, with its headers; node-gyp would fetch others.
    npm_ =
        runProgram("/usr/bin/env",
                   {"PATH=/usr/bin:/bin", "npm_config_nodedir=/usr", "npm_config_fetch_retries=1",
                    "npm_config_fetch_retry_mintimeout=1000", "npm_config_fetch_timeout=30000",
                    "npm_config_prefer_offline=true", "npm", "ci", "--prefix", kFolder});
  }

  void SetUp() override {
    static const auto& unreachable = *new std::regex(
        "npm (error|ERR!) code (ENOTFOUND|EAI_AGAIN|ECONN[A-Z]+|E[A-Z]*TIMEDOUT|E[A-Z]+UNREACH|"
        "ERR_SOCKET_TIMEOUT|ENOTCACHED|E403|E50[0-9]|[A-Z_]*CERT[A-Z_]*)");
    std::smatch reason;
    if (npm_.status != 0 && std::regex_search(npm_.output, reason, unreachable)) {
      GTEST_SKIP() << "npm's registry cannot be reached: " << reason[2];
    }
    ASSERT_EQ(npm_.status, 0) << npm_.output;
  }

  static inline const std::string& kSources =
      *new std::string(HOIST_SOURCE_DIR "/examples/client/");
  static inline const std::string& kFolder = *new std::string(HOIST_BUILD_DIR "/npm/client/");
  static inline ProgramResult npm_{};
};

TEST_F(ExamplesInNode, TheClientRunsACommand) {
  auto helper = makeHelper("KelvoHelper");
  EXPECT_EQ(asUser({"/usr/bin/node", kFolder + "client.js", helper, "capture"}).output,
            "finished\n")
      << hoist_.log();
  EXPECT_EQ(asUser({"/usr/bin/node", kFolder + "client.js", helper, "levitate"}).output,
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
