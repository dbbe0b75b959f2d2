// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The helper is a program of somebody else until it has proved otherwise, so nothing here waits for
// it without a limit: it may not read its input, answer nothing, answer slowly or never stop
// talking. The lines are written and the answer is read in one loop, because a helper may answer
// before it has read everything.

#include "daemon/HelperHandshake.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/SystemCall.h"
#include "platform/xpc/Limits.h"
#include "values/product.h"

namespace hoist {
namespace {

constexpr std::string_view kAccepted = "OK\n";
constexpr std::string_view kBadVersion = "BADVER";
constexpr std::size_t kStatusBytes = 3;

void makeNonBlocking(int fd) {
  int flags = systemCall("fcntl(F_GETFL)", [&] { return ::fcntl(fd, F_GETFL); });
  systemCall("fcntl(F_SETFL)", [&] { return ::fcntl(fd, F_SETFL, flags | O_NONBLOCK); });
}

// Reads what is there; false at the end of the output.
bool readSome(int fd, std::string& text, std::size_t limit) {
  std::array<char, 4096> buffer;
  std::size_t wanted = std::min(buffer.size(), limit - text.size());
  ssize_t got = retryInterrupted([&] { return ::read(fd, buffer.data(), wanted); });
  if (got < 0) return errno == EAGAIN;
  text.append(buffer.data(), static_cast<std::size_t>(got));
  return got > 0;
}

// Writes what fits; false when there is nothing more to write or nobody to read it.
bool writeSome(int fd, std::string_view& rest) {
  ssize_t put = retryInterrupted([&] { return ::write(fd, rest.data(), rest.size()); });
  if (put < 0) return errno == EAGAIN;
  rest.remove_prefix(static_cast<std::size_t>(put));
  return !rest.empty();
}

// The first three bytes of the output, or fewer when it ended or the time did. What is written by
// then is taken off the lines.
std::string exchange(int input, int output, std::string_view& lines, Clock::Instant deadline) {
  std::string status;
  bool writing = true;
  while (status.size() < kStatusBytes) {
    // poll ignores a negative descriptor.
    std::array<pollfd, 2> ready{{{output, POLLIN, 0}, {writing ? input : -1, POLLOUT, 0}}};
    if (Clock::poll(ready, deadline) == 0) break;
    if (ready[1].revents != 0) writing = writeSome(input, lines);
    if (ready[0].revents != 0 && !readSome(output, status, kStatusBytes)) break;
  }
  return status;
}

// A helper may accept before it has read everything, and goes on reading. One that does not read
// has accepted all the same.
void writeRest(int input, std::string_view lines, Clock::Instant deadline) {
  while (!lines.empty()) {
    std::array<pollfd, 1> ready{{{input, POLLOUT, 0}}};
    if (Clock::poll(ready, deadline) == 0 || !writeSome(input, lines)) break;
  }
}

std::string readRefusal(int output) {
  std::string text;
  Clock::Instant deadline = Clock::instant() + xpc::kRefusedHelperTime;
  while (text.size() < xpc::kRefusedHelperOutput) {
    std::array<pollfd, 1> ready{{{output, POLLIN, 0}}};
    if (Clock::poll(ready, deadline) == 0 || !readSome(output, text, xpc::kRefusedHelperOutput))
      break;
  }
  return text;
}

bool isAscii(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

}  // namespace

bool fitsHandshakeLine(const std::string& text) {
  return std::ranges::all_of(text, isAscii) && text.find('\n') == std::string::npos;
}

std::string handshakeLines(const std::string& serviceName, const std::string& commandName,
                           const std::vector<std::string>& flags) {
  std::string lines =
      std::string(product::kHelperVersion) + "\n" + serviceName + "\n" + commandName + "\n";
  for (std::size_t i = 0; i < flags.size(); ++i) lines += (i > 0 ? "," : "") + flags[i];
  return lines + "\n";
}

HandshakeAnswer refusalFrom(const std::string& output) {
  static constexpr const char* kWhiteSpace = " \t\n\v\f\r";
  HandshakeAnswer answer{.kind = HandshakeAnswer::Kind::Refused, .response = output};
  std::ranges::replace_if(
      answer.response, [](char c) { return !isAscii(c); }, '?');
  answer.response.erase(answer.response.find_last_not_of(kWhiteSpace) + 1);
  answer.response.erase(0, answer.response.find_first_not_of(kWhiteSpace));
  answer.wrongVersion = answer.response.starts_with(kBadVersion);
  return answer;
}

HandshakeAnswer shakeHands(int input, int output, const std::string& lines,
                           Clock::Instant deadline) {
  makeNonBlocking(input);
  makeNonBlocking(output);
  std::string_view unwritten = lines;
  std::string status = exchange(input, output, unwritten, deadline);
  if (status.size() < kStatusBytes) return {.kind = HandshakeAnswer::Kind::None};
  if (status == kAccepted) {
    writeRest(input, unwritten, deadline);
    return {.kind = HandshakeAnswer::Kind::Accepted};
  }
  return refusalFrom(readRefusal(output));
}

}  // namespace hoist
