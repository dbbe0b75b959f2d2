// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// The authentication that a D-Bus connection begins with, mechanism EXTERNAL only. Both sides are
// pure: bytes in, bytes out, no I/O. One thread at a time. Source: the D-Bus specification,
// "Authentication Protocol".
//
// Descriptors: a read that ends before the exchange is over must bring none. Those of the read that
// ends it go to the FrameReader with the bytes left over, if there are any and descriptors were
// negotiated; otherwise the connection ends.
namespace hoist::dbus {

inline constexpr std::size_t kMaximumExchangeSize =
    16384;  // bytes of one side's whole exchange; picked
// So many attempts are answered with REJECTED, and so many commands with ERROR; the next one ends
// the exchange.
inline constexpr unsigned kMaximumRejections = 16;

enum class SaslState { kNeedMore, kAuthenticated, kFailed };

struct SaslStep {
  SaslState state = SaslState::kNeedMore;
  std::size_t consumed = 0;  // bytes taken; after kAuthenticated the others belong to the messages
  std::string reply;         // to be sent, in every state; may be empty
};

// Cuts one side's input into lines, in whatever portions it comes.
class SaslLines {
 public:
  // The next line without its end, valid until the next call; nothing if it is not complete. Goes
  // on in bytes at `consumed` and adds to it what it took.
  std::optional<std::string_view> next(std::string_view bytes, std::size_t& consumed);
  // Whether the side has used up its kMaximumExchangeSize.
  bool isFull() const { return received_ >= kMaximumExchangeSize; }

 private:
  std::string line_;
  bool isComplete_ = false;
  std::size_t received_ = 0;
};

// The server's side of one connection.
class SaslServer {
 public:
  // peer: the user that the kernel names. guid: the listener's (makeGuid). offerFileDescriptors:
  // whether NEGOTIATE_UNIX_FD is agreed to.
  SaslServer(uid_t peer, std::string guid, bool offerFileDescriptors = true);

  // Takes the next bytes. After kAuthenticated and kFailed it may not be called again.
  SaslStep receive(std::string_view bytes);

  bool fileDescriptorsNegotiated() const { return descriptorsNegotiated_; }
  // Why it failed, for the log; holds no byte of the peer's.
  std::string_view failure() const { return failure_; }

 private:
  enum class Waiting { kForNul, kForAuth, kForData, kForBegin };

  void handleLine(std::string_view line, SaslStep& step);
  void handleAuth(std::string_view arguments, SaslStep& step);
  void handleToken(std::string_view token, SaslStep& step);
  void begin(SaslStep& step);
  void negotiateDescriptors(SaslStep& step);
  void reject(SaslStep& step);
  void answerError(SaslStep& step);
  void fail(SaslStep& step, std::string_view reason);

  std::string user_;  // the peer's user identifier as the exchange writes it: decimal digits
  std::string guid_;
  bool offerDescriptors_;
  Waiting waiting_ = Waiting::kForNul;
  bool descriptorsNegotiated_ = false;
  unsigned rejections_ = 0;
  unsigned errors_ = 0;
  SaslLines lines_;
  std::string_view failure_;
};

// The client's side. Its whole exchange is one text that does not depend on the answers, so
// messages may be sent right behind it and connecting costs no round trip of its own; the answers
// are checked as they come. Messages with descriptors wait for fileDescriptorsNegotiated().
class SaslClient {
 public:
  explicit SaslClient(bool wantFileDescriptors = true) : wantDescriptors_(wantFileDescriptors) {}

  // What is to be sent first. It names no user: the kernel's word is the server's, whatever the
  // user name space that either side lives in.
  std::string_view exchange() const;
  // Takes the server's next bytes. kFailed: the server refused, or said what it may not say.
  // step.reply stays empty.
  SaslStep receive(std::string_view bytes);

  bool fileDescriptorsNegotiated() const { return descriptorsNegotiated_; }
  const std::string& serverGuid() const { return guid_; }
  std::string_view failure() const { return failure_; }

 private:
  enum class Waiting { kForData, kForOk, kForAgreement };

  SaslState handleLine(std::string_view line);
  SaslState handleOk(std::string_view line);
  SaslState fail(std::string_view reason);

  bool wantDescriptors_;
  Waiting waiting_ = Waiting::kForData;
  bool descriptorsNegotiated_ = false;
  std::string guid_;
  SaslLines lines_;
  std::string_view failure_;
};

}  // namespace hoist::dbus
