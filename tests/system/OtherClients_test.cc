// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Programs that know nothing of us but the D-Bus protocol.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "system/RunningHoist.h"

namespace hoist {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

const std::string kAddress = "unix:path=/run/kelvo/com.kelvo.hoist";
constexpr unsigned kUser = 20001;

ProgramResult asUser(std::vector<std::string> command) {
  std::vector<std::string> arguments{"--reuid=20001", "--regid=20001", "--clear-groups"};
  arguments.insert(arguments.end(), command.begin(), command.end());
  return runProgram("/usr/bin/setpriv", arguments);
}

std::string introspection() {
  return asUser({"gdbus", "introspect", "--address", kAddress, "--dest", "com.kelvo.hoist",
                 "--object-path", "/", "--xml"})
      .output;
}

class OtherClient : public testing::Test {
 protected:
  RunningHoist hoist_;
};

TEST_F(OtherClient, SeesTheProtocolWithAllThatItAdopts) {
  std::string xml = introspection();
  for (const char* interface : {"TesselHoisting", "KLComponentServing", "KLComponentMessaging",
                                "KLComponentInstalling", "KLHelperCoupling"}) {
    EXPECT_THAT(xml, HasSubstr(std::string("<interface name=\"com.kelvo.") + interface + "\""));
  }
  for (const char* method :
       {"launchPrivilegedHelper_commandName_flags_reply_",
        "createBootApplicationSupportPathForUser", "asyncSample_report_withReply_",
        "connectWithEndpoint_forCommandID_withReply_", "queryComponentVersionWithReply_",
        "queryBuildNumberWithReply_", "barrierWithCompletion_"}) {
    EXPECT_THAT(xml, HasSubstr(std::string("<method name=\"") + method + "\""));
  }
  for (const char* argument : {"<arg type=\"s\" name=\"helperPath\" direction=\"in\"",
                               "<arg type=\"as\" name=\"flags\" direction=\"in\"",
                               "<arg type=\"as\" name=\"serviceName\" direction=\"out\"",
                               "<arg type=\"ah\" name=\"endpoint\" direction=\"out\"",
                               "<arg type=\"ai\" name=\"processes\" direction=\"in\"",
                               "<arg type=\"b\" name=\"finished\" direction=\"out\"",
                               "<arg type=\"u\" name=\"buildNumber\" direction=\"out\"",
                               "<annotation name=\"com.kelvo.Nilable\""}) {
    EXPECT_THAT(xml, HasSubstr(argument));
  }
  // Optional operations that the object does not implement are not shown.
  EXPECT_EQ(xml.find("didInstallComponent"), std::string::npos);
}

TEST_F(OtherClient, IsAnsweredWhenItIsGdbus) {
  auto result =
      asUser({"gdbus", "call", "--address", kAddress, "--dest", "com.kelvo.hoist", "--object-path",
              "/", "--method", "com.kelvo.KLComponentInstalling.queryComponentVersionWithReply_"});
  EXPECT_EQ(result.output, "('Hoisting-2.2.5.12',)\n");
}

TEST_F(OtherClient, IsAnsweredWhenItIsBusctl) {
  auto result = asUser({"busctl", "--address=" + kAddress, "call", "com.kelvo.hoist", "/",
                        "com.kelvo.KLComponentInstalling", "queryBuildNumberWithReply_"});
  EXPECT_EQ(result.output, "u 140556\n");
}

TEST_F(OtherClient, IsAnsweredWhenItIsDbusSend) {
  auto result =
      asUser({"dbus-send", "--peer=" + kAddress, "--print-reply", "--dest=com.kelvo.hoist", "/",
              "com.kelvo.KLComponentMessaging.barrierWithCompletion_"});
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("method return"));
}

TEST_F(OtherClient, IsToldWhatWasWrongWithItsCall) {
  auto result = asUser({"gdbus", "call", "--address", kAddress, "--dest", "com.kelvo.hoist",
                        "--object-path", "/", "--method", "com.kelvo.TesselHoisting.levitate_"});
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("org.freedesktop.DBus.Error.UnknownMethod"));
}

TEST_F(OtherClient, IsRefusedFewerReportsThanProcesses) {
  auto result = asUser({"busctl", "--address=" + kAddress, "call", "com.kelvo.hoist", "/",
                        "com.kelvo.TesselHoisting", "asyncSample_report_withReply_", "aias", "2",
                        "1", "2", "1", "/tmp/one"});
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("fewer reports than processes"));
}

TEST_F(OtherClient, LaunchesAHelperAndTalksToIt) {
  auto helper = Sandbox::shared().makeHelper("gio", HOIST_BUILD_DIR "/bin/KelvoHelper", kUser);
  auto result = asUser(
      {"/usr/bin/python3", HOIST_SOURCE_DIR "/tests/system/launch_with_gio.py", helper, "restore"});
  EXPECT_EQ(result.status, 0) << hoist_.log();
  EXPECT_THAT(result.output, MatchesRegex("helper\\.restore\\.[0-9]+\nrestore\n[0-9]+\n"));
}

}  // namespace
}  // namespace hoist
