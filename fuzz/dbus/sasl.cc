// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as either side's authentication. What comes out must not depend on the portions that
// they come in, must be bounded, and a server must let in only who says nothing else than the
// kernel does.
#include "platform/dbus/Sasl.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

using namespace hoist::dbus;

struct Outcome {
  SaslState state = SaslState::kNeedMore;
  std::size_t consumed = 0;
  std::string replies;
  bool descriptors = false;
  bool operator==(const Outcome&) const = default;
};

template <class Side>
Outcome converse(Side side, std::string_view input, std::size_t portion) {
  Outcome outcome;
  while (!input.empty() && outcome.state == SaslState::kNeedMore) {
    SaslStep step = side.receive(input.substr(0, portion));
    if (step.consumed > std::min(portion, input.size())) std::abort();
    input.remove_prefix(step.consumed);
    outcome.consumed += step.consumed;
    outcome.replies += step.reply;
    outcome.state = step.state;
    if (step.state == SaslState::kFailed && side.failure().empty()) std::abort();
  }
  outcome.descriptors = side.fileDescriptorsNegotiated();
  return outcome;
}

template <class Side>
void check(const Side& side, std::string_view input, std::size_t portion) {
  Outcome whole = converse(side, input, input.size());
  if (!(whole == converse(side, input, portion))) std::abort();
  if (whole.consumed > kMaximumExchangeSize + 1) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string guid(32, 'a');
  std::size_t portion = 1 + data[0];
  check(SaslServer(1000, guid, data[0] % 2 == 0), input, portion);
  check(SaslServer(1000, guid), std::string(1, '\0') + std::string(input), portion);
  check(SaslClient(data[0] % 2 == 0), input, portion);
  Outcome server =
      converse(SaslServer(1000, guid), std::string(1, '\0') + std::string(input), input.size() + 1);
  bool authenticated = server.state == SaslState::kAuthenticated;
  if (authenticated && server.replies.find("OK " + guid) == std::string::npos) std::abort();
  return 0;
}
