// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fmt/format.h>

#include <optional>
#include <tuple>
#include <utility>

#include "connection/KLConnection.h"
#include "hoistctl/CommandError.h"

namespace hoist::ctl {

// Throws what kept a round trip of the connection from succeeding: the peer refused a message, or
// there is none.
[[noreturn]] inline void throwFailure(const KLConnection& connection, const Ref<Error>& error) {
  std::string reason = error ? error->localizedDescription().value_or(error->description()) : "";
  if (error && error->code() == Error::kConnectionReplyInvalid)
    throw CommandError(Failure::Refused, reason);
  throw CommandError(Failure::Unreachable, fmt::format("{} cannot be reached{}{}",
                                                       connection.identifier().value_or("the peer"),
                                                       reason.empty() ? "" : ": ", reason));
}

// Makes a round trip with the messages that the block sends. Throws CommandError.
inline void roundTrip(KLConnection& connection, const KLConnection::MessageBlock& block) {
  Ref<Error> error;
  if (!connection.performSynchronousBlock(block, &error)) throwFailure(connection, error);
}

// Sends one message and waits for its answer, which comes before the round trip is back, or never
// will. Throws CommandError; answers nothing when there was no answer.
template <auto Function, class... Results, class... Arguments>
std::optional<std::tuple<Results...>> tryAsk(KLConnection& connection,
                                             const Arguments&... arguments) {
  auto answer = std::make_shared<std::optional<std::tuple<Results...>>>();
  roundTrip(connection, [&](const xpc::Proxy& proxy) {
    proxy.send<Function>(arguments...,
                         [answer](Results... values) { answer->emplace(std::move(values)...); });
  });
  return std::move(*answer);
}

// The same for one value, which has to come.
template <auto Function, class Result, class... Arguments>
Result ask(KLConnection& connection, const Arguments&... arguments) {
  auto answer = tryAsk<Function, Result>(connection, arguments...);
  if (!answer) throwFailure(connection, nullptr);
  return std::get<0>(std::move(*answer));
}

}  // namespace hoist::ctl
