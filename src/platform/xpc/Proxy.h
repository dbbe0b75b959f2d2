// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <tuple>

#include "platform/xpc/MethodTraits.h"
#include "platform/xpc/Wire.h"
#include "values/Error.h"

namespace hoist::xpc {

class Connection;
struct Method;

// Called with what kept a message from being answered. Codes of Error::kCocoaDomain: 4097 the
// connection ended before the answer, 4099 it was not valid any more, 4101 the answer was an error
// of the peer's or not what the interface says.
using ErrorHandler = std::function<void(const Ref<Error>&)>;

// The peer's exported object, as the connection's remote object interface describes it. Holds its
// connection. Safe to use from any thread.
//
//   proxy->send<&Counting::add>(7, "seven", [](std::int64_t sum) { ... });
class Proxy {
 public:
  // For use by Connection.
  Proxy(Ref<Connection> connection, ErrorHandler handler);
  ~Proxy();

  // Sends the message; its arguments are those of the function, the reply block last. Returns at
  // once. Throws std::logic_error for an operation that the remote object interface does not have.
  template <auto Function, class... Given>
  void send(Given&&... given) const {
    using Traits = MethodTraits<Function>;
    sendValues(keyOf<Function>, typename Traits::Arguments(), typename Traits::Results(),
               std::bool_constant<Traits::kHasReply>(), std::forward<Given>(given)...);
  }

  // The same for an operation without a reply that is known only when the program runs: the
  // function writes the arguments, in order and with their types.
  using Write = std::function<void(ArgumentWriter&)>;
  void send(const Method& method, const Write& write) const;

  const Ref<Connection>& connection() const { return connection_; }

 private:
  using Read = std::function<void(ArgumentReader&)>;

  template <class... Arguments, class... Results, bool hasReply, class... Given>
  void sendValues(const void* key, TypeList<Arguments...>, TypeList<Results...>,
                  std::bool_constant<hasReply>, Given&&... given) const {
    if constexpr (hasReply) {
      static_assert(sizeof...(Given) == sizeof...(Arguments) + 1, "arguments and a reply block");
      std::tuple<Arguments..., Reply<Results...>> values(std::forward<Given>(given)...);
      auto& reply = std::get<sizeof...(Arguments)>(values);
      sendMessage(key, writerOf<Arguments...>(values),
                  [reply = std::move(reply)](ArgumentReader& reader) {
                    std::tuple<Results...> results{Wire<Results>::read(reader.next())...};
                    reader.finish();
                    std::apply([&](Results&... value) { reply(std::move(value)...); }, results);
                  });
    } else {
      static_assert(sizeof...(Given) == sizeof...(Arguments), "the arguments");
      std::tuple<Arguments...> values(std::forward<Given>(given)...);
      sendMessage(key, writerOf<Arguments...>(values), nullptr);
    }
  }

  // Writes the first values of the tuple, which are of the given types. Borrows the tuple.
  template <class... Arguments, class Values>
  static Write writerOf(const Values& values) {
    return [&values](ArgumentWriter& writer) {
      [&]<std::size_t... Index>(std::index_sequence<Index...>) {
        (Wire<Arguments>::write(writer, std::get<Index>(values)), ...);
      }
      (std::index_sequence_for<Arguments...>());
    };
  }

  void sendMessage(const void* key, const Write& write, Read read) const;

  Ref<Connection> connection_;
  ErrorHandler handler_;
};

}  // namespace hoist::xpc
