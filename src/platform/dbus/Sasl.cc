// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Both sides cut their input into lines and handle one at a time, whatever the portions it comes
// in. The server's user is known from the kernel before the first byte, so all that a token can do
// is to be wrong.
#include "platform/dbus/Sasl.h"

#include "platform/dbus/Guid.h"

namespace hoist::dbus {

namespace {

// A line is a command and its arguments, separated by blanks.
struct Command {
  std::string_view word;
  std::string_view arguments;
};

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

Command split(std::string_view line) {
  std::size_t blank = line.find(' ');
  if (blank == std::string_view::npos) return {line, {}};
  return {line.substr(0, blank), trimmed(line.substr(blank))};
}

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Whether the hexadecimal digits spell exactly this text.
bool spells(std::string_view digits, std::string_view text) {
  if (digits.size() != 2 * text.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    int high = digitValue(digits[2 * i]);
    int low = digitValue(digits[2 * i + 1]);
    if (high < 0 || low < 0 || static_cast<char>(high * 16 + low) != text[i]) return false;
  }
  return true;
}

// Control characters, NUL and bytes that are no ASCII stand in no line of the protocol.
bool isPrintable(std::string_view line) {
  for (char c : line) {
    if (c < ' ' || c > '~') return false;
  }
  return true;
}

}  // namespace

std::optional<std::string_view> SaslLines::next(std::string_view bytes, std::size_t& consumed) {
  if (isComplete_) line_.clear();
  isComplete_ = false;
  while (consumed < bytes.size() && !isFull()) {
    line_ += bytes[consumed++];
    ++received_;
    if (!line_.ends_with("\r\n")) continue;
    isComplete_ = true;
    return std::string_view(line_).substr(0, line_.size() - 2);
  }
  return std::nullopt;
}

// The server.

SaslServer::SaslServer(uid_t peer, std::string guid, bool offerFileDescriptors)
    : user_(std::to_string(peer)),
      guid_(std::move(guid)),
      offerDescriptors_(offerFileDescriptors) {}

SaslStep SaslServer::receive(std::string_view bytes) {
  SaslStep step;
  if (waiting_ == Waiting::kForNul && !bytes.empty()) {
    if (bytes[0] != 0) fail(step, "the first byte is not NUL");
    step.consumed = 1;
    waiting_ = Waiting::kForAuth;
  }
  while (step.state == SaslState::kNeedMore) {
    auto line = lines_.next(bytes, step.consumed);
    if (!line) break;
    handleLine(*line, step);
  }
  if (step.state == SaslState::kNeedMore && lines_.isFull()) {
    fail(step, "the exchange is too long (kMaximumExchangeSize in dbus/Sasl.h)");
  }
  return step;
}

void SaslServer::handleLine(std::string_view line, SaslStep& step) {
  auto [word, arguments] = split(line);
  if (!isPrintable(line)) return answerError(step);
  if (word == "BEGIN") return begin(step);
  if (word == "CANCEL" || word == "ERROR") return reject(step);
  if (word == "AUTH" && waiting_ == Waiting::kForAuth) return handleAuth(arguments, step);
  if (word == "DATA" && waiting_ == Waiting::kForData) return handleToken(arguments, step);
  if (word == "NEGOTIATE_UNIX_FD" && waiting_ == Waiting::kForBegin) {
    return negotiateDescriptors(step);
  }
  answerError(step);
}

void SaslServer::handleAuth(std::string_view arguments, SaslStep& step) {
  auto [mechanism, token] = split(arguments);
  if (mechanism != "EXTERNAL") return reject(step);
  if (!token.empty()) return handleToken(token, step);
  step.reply += "DATA\r\n";
  waiting_ = Waiting::kForData;
}

void SaslServer::handleToken(std::string_view token, SaslStep& step) {
  if (!token.empty() && !spells(token, user_)) return reject(step);
  step.reply += "OK " + guid_ + "\r\n";
  waiting_ = Waiting::kForBegin;
}

void SaslServer::begin(SaslStep& step) {
  if (waiting_ != Waiting::kForBegin) return fail(step, "BEGIN came before the authentication");
  step.state = SaslState::kAuthenticated;
}

void SaslServer::negotiateDescriptors(SaslStep& step) {
  if (!offerDescriptors_) return answerError(step);
  descriptorsNegotiated_ = true;
  step.reply += "AGREE_UNIX_FD\r\n";
}

void SaslServer::reject(SaslStep& step) {
  if (++rejections_ > kMaximumRejections) {
    return fail(step, "too many attempts were rejected (kMaximumRejections in dbus/Sasl.h)");
  }
  step.reply += "REJECTED EXTERNAL\r\n";
  waiting_ = Waiting::kForAuth;
  descriptorsNegotiated_ = false;
}

void SaslServer::answerError(SaslStep& step) {
  if (++errors_ > kMaximumRejections) {
    return fail(step, "too many commands were wrong (kMaximumRejections in dbus/Sasl.h)");
  }
  step.reply += "ERROR\r\n";
}

void SaslServer::fail(SaslStep& step, std::string_view reason) {
  step.state = SaslState::kFailed;
  failure_ = reason;
}

// The client.

std::string_view SaslClient::exchange() const {
  using namespace std::string_view_literals;
  constexpr auto kPlain = "\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"sv;
  constexpr auto kWithDescriptors = "\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n"sv;
  return wantDescriptors_ ? kWithDescriptors : kPlain;
}

SaslStep SaslClient::receive(std::string_view bytes) {
  SaslStep step;
  while (step.state == SaslState::kNeedMore) {
    auto line = lines_.next(bytes, step.consumed);
    if (!line) break;
    step.state = handleLine(*line);
  }
  if (step.state == SaslState::kNeedMore && lines_.isFull()) {
    step.state = fail("the server's answer is too long");
  }
  return step;
}

SaslState SaslClient::handleLine(std::string_view line) {
  std::string_view word = split(line).word;
  if (word == "REJECTED") return fail("the server rejected this user");
  switch (waiting_) {
    case Waiting::kForData:
      if (line != "DATA") return fail("the server did not ask for the user");
      waiting_ = Waiting::kForOk;
      return SaslState::kNeedMore;
    case Waiting::kForOk:
      return handleOk(line);
    case Waiting::kForAgreement:
      if (word != "AGREE_UNIX_FD" && word != "ERROR") {
        return fail("the server did not answer about descriptors");
      }
      descriptorsNegotiated_ = word == "AGREE_UNIX_FD";
      return SaslState::kAuthenticated;
  }
  return fail("the server said too much");
}

SaslState SaslClient::handleOk(std::string_view line) {
  auto [word, guid] = split(line);
  if (word != "OK" || !isValidGuid(guid)) return fail("the server did not say OK and who it is");
  guid_ = guid;
  waiting_ = Waiting::kForAgreement;
  return wantDescriptors_ ? SaslState::kNeedMore : SaslState::kAuthenticated;
}

SaslState SaslClient::fail(std::string_view reason) {
  failure_ = reason;
  return SaslState::kFailed;
}

}  // namespace hoist::dbus
