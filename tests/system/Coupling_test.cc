// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Who is taken for a launch's helper: one of its user, and only while the process that made the
// connection runs. The helpers here connect when the test tells them to, and leave the talking to
// it.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"
#include "platform/dbus/MessageWriter.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/Peer.h"
#include "platform/xpc/testing/RawPeer.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

constexpr unsigned kUser = 20001;
constexpr unsigned kOther = 20002;
const std::string kSocket = "/run/kelvo/com.kelvo.hoist";

// Where a helper takes its orders from.
class Orders {
 public:
  explicit Orders(std::string path) : path_(std::move(path)) {
    sockaddr_un address{.sun_family = AF_UNIX};
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    systemCall("bind", [&] {
      return ::bind(listening_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    });
    systemCall("listen", [&] { return ::listen(listening_.get(), 1); });
    systemCall("chmod", [&] { return ::chmod(path_.c_str(), 0666); });
  }
  ~Orders() { ::unlink(path_.c_str()); }
  Orders(const Orders&) = delete;
  Orders& operator=(const Orders&) = delete;

  const std::string& path() const { return path_; }
  // The helper has then read its lines: its launch is ready to couple.
  void waitForHelper() {
    helper_ = FileDescriptor(systemCall(
        "accept4", [&] { return ::accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
  }
  xpc::RawPeer connectItself() { return xpc::RawPeer(give('o').value()); }
  xpc::RawPeer connectInChild() { return xpc::RawPeer(give('c').value()); }
  void endChild() { give('e'); }

 private:
  std::optional<FileDescriptor> give(char order) {
    systemCall("send", [&] { return ::send(helper_.get(), &order, 1, MSG_NOSIGNAL); });
    std::uint8_t byte[1];
    auto got = dbus::receive(helper_.get(), byte, 1);
    if (got.size != 1) throw std::runtime_error("the helper has ended");
    if (got.descriptors.empty()) return std::nullopt;
    return std::move(got.descriptors[0]);
  }

  std::string path_;
  FileDescriptor listening_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  FileDescriptor helper_;
};

class Coupling : public testing::Test {
 protected:
  ~Coupling() override {
    mine_.reset();
    if (client_.joinable()) client_.join();
    for (unsigned user : {kUser, kOther}) std::filesystem::remove_all(folderOf(user));
  }

  static std::string nameOf(unsigned user) { return "calling" + std::to_string(user); }
  static std::string folderOf(unsigned user) {
    return Sandbox::shared().folder() + "/" + nameOf(user);
  }
  std::string helperOf(unsigned user) {
    return Sandbox::shared().makeHelper(nameOf(user), HOIST_BUILD_DIR "/bin/test_calling_helper",
                                        user);
  }
  // A launch that waits for its helper meanwhile.
  void startLaunch(unsigned user, Orders& orders) {
    client_ = std::thread([user, executable = helperOf(user), path = orders.path()] {
      launch(user, executable, "capture", {path});
    });
    orders.waitForHelper();
  }
  // Whether the hoist takes the caller for the helper of the launch that waits. What is not taken
  // is not answered, so what follows is.
  bool isTaken(xpc::RawPeer& caller) {
    caller.send(xpc::rawCall({.interface = "com.kelvo.KLHelperCoupling",
                              .member = "connectWithEndpoint_forCommandID_withReply_",
                              .signature = "hs"},
                             1, [&](dbus::MessageWriter& writer) {
                               writer.appendFileDescriptor(newEndpoint());
                               writer.appendString("helper.capture.1");
                             }));
    caller.send(xpc::rawCall(
        {.interface = "com.kelvo.KLComponentMessaging", .member = "barrierWithCompletion_"}, 2));
    auto answer = caller.readMessage();
    if (!answer) throw std::runtime_error("the hoist has closed the connection");
    return answer->replySerial() == 1;
  }

  RunningHoist hoist_;

 private:
  // Of a listener that is gone when the test is.
  FileDescriptor newEndpoint() {
    int ends[2];
    systemCall("socketpair",
               [&] { return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends); });
    mine_ = FileDescriptor(ends[0]);
    return FileDescriptor(ends[1]);
  }

  FileDescriptor mine_;
  std::thread client_;
};

bool tellsWhetherAPeerRuns() {
  int ends[2];
  systemCall("socketpair",
             [&] { return ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends); });
  FileDescriptor one(ends[0]), other(ends[1]);
  return static_cast<bool>(xpc::Peer::processDescriptorOfSocket(one.get()));
}

TEST_F(Coupling, TakesNoLateHelperIntoTheLaunchOfAnotherUser) {
  Orders late(Sandbox::shared().folder() + "/late"), own(Sandbox::shared().folder() + "/own");
  // A launch that has failed, whose helper lives on.
  EXPECT_EQ(launch(kUser, helperOf(kUser), "refuse", {late.path()}).status, 1);
  late.waitForHelper();
  startLaunch(kOther, own);
  auto latePeer = late.connectItself();
  latePeer.authenticate();
  EXPECT_FALSE(isTaken(latePeer)) << hoist_.log();
  auto ownPeer = own.connectItself();
  ownPeer.authenticate();
  EXPECT_TRUE(isTaken(ownPeer)) << hoist_.log();
}

TEST_F(Coupling, TakesNoProcessThatHasEnded) {
  if (!tellsWhetherAPeerRuns()) GTEST_SKIP() << "this kernel has no descriptors of peers";
  Orders orders(Sandbox::shared().folder() + "/orders");
  startLaunch(kUser, orders);
  auto ended = orders.connectInChild();
  ended.authenticate();
  orders.endChild();
  EXPECT_FALSE(isTaken(ended)) << hoist_.log();
  auto running = orders.connectInChild();
  running.authenticate();
  EXPECT_TRUE(isTaken(running)) << hoist_.log();
}

// Whether the hoist lets the connection in.
bool isAdmitted(xpc::RawPeer& peer) {
  peer.send(xpc::RawPeer::kExchange);
  return peer.readLine().has_value();
}

// Holds all threads of the hoist.
void stop(pid_t hoist) {
  ::kill(hoist, SIGSTOP);
  siginfo_t stopped;
  systemCall("waitid", [&] {
    return ::waitid(P_PID, static_cast<id_t>(hoist), &stopped, WSTOPPED | WNOWAIT);
  });
}

TEST_F(Coupling, GivesNoHelpersPlaceToAConnectionOfAProcessThatHadEndedWhenItCame) {
  if (!tellsWhetherAPeerRuns()) GTEST_SKIP() << "this kernel has no descriptors of peers";
  Orders orders(Sandbox::shared().folder() + "/orders");
  EXPECT_EQ(launch(kUser, helperOf(kUser), "refuse", {orders.path()}).status, 1);
  orders.waitForHelper();
  // The user's own connections are as many as they may be; those of helpers count apart.
  std::vector<xpc::RawPeer> others;
  bool isFull = false;
  while (!isFull && others.size() <= xpc::kConnectionsOfOneUser) {
    others.push_back(xpc::RawPeer::asUser(kUser, kSocket));
    isFull = !isAdmitted(others.back());
  }
  ASSERT_TRUE(isFull);
  auto running = orders.connectInChild();
  EXPECT_TRUE(isAdmitted(running)) << hoist_.log();
  stop(hoist_.process());
  auto ended = orders.connectInChild();
  orders.endChild();
  ::kill(hoist_.process(), SIGCONT);
  EXPECT_FALSE(isAdmitted(ended)) << hoist_.log();
}

}  // namespace
}  // namespace hoist
