// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "connection/TestPeer.h"
#include "platform/RunLoop.h"
#include "support/RecordingLogger.h"

namespace hoist {

// Runs the main queue until the condition holds, which something under way makes true.
inline bool eventually(const std::function<bool()>& condition) {
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    RunLoop::main().runOnce(1000);
  }
  return true;
}

// A client's connection to a peer in this process, with the log kept.
class ClientTest : public testing::Test {
 protected:
  ClientTest() { connection_ = make<TestConnection>(std::vector{&peer_}); }

  std::vector<std::string> linesWith(const std::string& text) const {
    std::vector<std::string> found;
    for (const auto& line : logger_->texts(classification::Debug))
      if (line.find(text) != std::string::npos) found.push_back(line);
    return found;
  }
  std::size_t verifyFailuresLogged() const { return linesWith("failed to verify").size(); }
  std::size_t messageFailuresLogged() const { return linesWith("message from").size(); }

  Ref<RecordingLogger> logger_ = make<RecordingLogger>();
  ScopedDefaultLogger<RecordingLogger> scope_{logger_};
  TestPeer peer_;
  Ref<TestConnection> connection_;
};

}  // namespace hoist
