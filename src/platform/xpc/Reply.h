// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "values/Ref.h"

namespace hoist::xpc {

// Reports the call of a reply that had been called before.
void reportSecondReply();

// The reply block of an operation: the receiver calls it once, from any thread, then or later. A
// second call is ignored and reported. A reply that is dropped uncalled leaves its sender without
// an answer. Copies are handles to one reply. What is called may throw; the exception reaches the
// caller of the reply.
template <class... Values>
class Reply {
 public:
  using Block = std::function<void(Values...)>;

  // A reply that nobody waits for.
  Reply() = default;

  // Constrained, so that it hides neither copy nor move.
  template <class Callable>
  requires(!std::same_as<std::remove_cvref_t<Callable>, Reply> &&
           std::is_invocable_v<Callable&, Values...>)
      // NOLINTNEXTLINE(bugprone-forwarding-reference-overload)
      Reply(Callable&& block)
      : state_(std::make_shared<State>(std::forward<Callable>(block))) {}

  void operator()(Values... values) const {
    if (!state_) return;
    if (state_->called.exchange(true)) {
      reportSecondReply();
      return;
    }
    // Moved out, so that what the block holds is let go when it has run.
    Block block = std::move(state_->block);
    block(std::move(values)...);
  }

 private:
  struct State {
    explicit State(Block b) : block(std::move(b)) {}
    std::atomic<bool> called = false;
    Block block;
  };
  Ref<State> state_;
};

}  // namespace hoist::xpc
