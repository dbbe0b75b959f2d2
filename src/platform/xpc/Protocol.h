// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/xpc/Exportable.h"
#include "platform/xpc/MethodTraits.h"
#include "platform/xpc/Reply.h"
#include "platform/xpc/Wire.h"

namespace hoist::xpc {

// What a declaration says of one argument: its name and, for an argument that is an object of a
// coded class, the name of the class.
struct Parameter {
  Parameter(const char* n) : name(n) {}
  Parameter(const char* n, const char* c) : name(n), className(c) {}

  std::string name;
  std::string className;
};

// An argument or a reply's value.
struct Argument {
  std::string name;
  std::string signature;  // D-Bus type, the array around what may be nil included
  std::string className;  // of a coded object, else empty
  bool nilable;
};

// Where the values of a reply go: to the peer that waits for them, if it does.
class ReplyTarget {
 public:
  virtual ~ReplyTarget();
  // Called once, from any thread.
  virtual void answer(const std::function<void(ArgumentWriter&)>& writeValues) = 0;
};

// One operation of a protocol.
struct Method {
  std::string selector;             // "first:second:reply:"
  std::string member;               // its name on the wire: every ':' turned into '_'
  std::string interfaceName;        // of the protocol that declares it
  std::vector<Argument> arguments;  // without the reply block
  std::vector<Argument> results;
  std::string argumentSignature;
  std::string resultSignature;
  bool hasReply = false;
  bool optional = false;
  const void* key = nullptr;  // keyOf<&Class::operation>
  // Reads the arguments and calls the operation of the object. What is thrown before the reader is
  // finished is the message's fault.
  void (*invoke)(Exportable& object, ArgumentReader& reader,
                 const Ref<ReplyTarget>& target) = nullptr;
};

// The operations that an object answers, by name and with types: the D-Bus interface
// <prefix>.<name> on the wire. Declared once, at run time, from a C++ interface class, whose member
// functions say the types and what may be nil:
//
//   class Counting : public virtual xpc::Exportable {
//    public:
//     virtual void add(std::int32_t number, std::optional<std::string> note,
//                      xpc::Reply<std::int64_t> reply) = 0;
//   };
//   const xpc::Protocol& countingProtocol() {
//     static const auto& protocol =
//         *new xpc::Protocol(xpc::Protocol("Counting")
//                                .adopts(otherProtocol())
//                                .method<&Counting::add>("add:note:withReply:",
//                                                        {"number", "note"}, {"sum"}));
//     return protocol;
//   }
//
// Immutable and permanent once declared; safe to use from any thread.
class Protocol {
 public:
  explicit Protocol(std::string name);

  // Declaring. The adopted protocol is borrowed and permanent. A declaration that does not fit its
  // function (number of names, colons of the selector) throws std::logic_error.
  Protocol&& adopts(const Protocol& protocol) &&;
  template <auto Function>
  Protocol&& method(std::string_view selector, std::initializer_list<Parameter> arguments = {},
                    std::initializer_list<Parameter> results = {}) && {
    add(describe<Function>(selector, arguments, results), false);
    return std::move(*this);
  }
  // An operation that an object may leave out (Exportable::respondsToSelector).
  template <auto Function>
  Protocol&& optionalMethod(std::string_view selector,
                            std::initializer_list<Parameter> arguments = {},
                            std::initializer_list<Parameter> results = {}) && {
    add(describe<Function>(selector, arguments, results), true);
    return std::move(*this);
  }

  const std::string& name() const { return name_; }
  // "<prefix>.<name>".
  const std::string& interfaceName() const { return interfaceName_; }
  // Its own operations, in declared order.
  const std::vector<Method>& methods() const { return methods_; }
  const std::vector<const Protocol*>& adopted() const { return adopted_; }
  // Itself and every adopted protocol, each once: a protocol before those that it adopts.
  std::vector<const Protocol*> closure() const;
  bool conformsTo(const Protocol& other) const;

  // Looks in the protocol and in all that it adopts; null when there is none.
  const Method* methodWithSelector(std::string_view selector) const;
  const Method* methodWithMember(std::string_view member) const;
  const Method* methodWithKey(const void* key) const;
  // This one or the adopted one with that interface name; null when there is none.
  const Protocol* protocolWithInterfaceName(std::string_view interfaceName) const;
  // Its own operation.
  const Method* ownMethodWithMember(std::string_view member) const;

 private:
  using Parameters = std::initializer_list<Parameter>;

  template <auto Function>
  static Method describe(std::string_view selector, Parameters arguments, Parameters results) {
    using Traits = MethodTraits<Function>;
    Method method;
    method.selector = selector;
    method.arguments = describeArguments(typename Traits::Arguments(), selector, arguments);
    method.results = describeArguments(typename Traits::Results(), selector, results);
    method.hasReply = Traits::kHasReply;
    method.key = keyOf<Function>;
    method.invoke = invokeMethod<Function>;
    return method;
  }

  template <class Type>
  static Argument describeArgument(const Parameter& parameter) {
    return {parameter.name, Wire<Type>::signature(), parameter.className, Wire<Type>::nilable};
  }

  template <class... Types>
  static std::vector<Argument> describeArguments(TypeList<Types...>, std::string_view selector,
                                                 Parameters parameters) {
    requireCount(selector, sizeof...(Types), parameters.size());
    std::vector<Argument> arguments;
    [[maybe_unused]] auto parameter = parameters.begin();
    (arguments.push_back(describeArgument<Types>(*parameter++)), ...);
    return arguments;
  }

  template <auto Function>
  static void invokeMethod(Exportable& object, ArgumentReader& reader,
                           const Ref<ReplyTarget>& target) {
    using Traits = MethodTraits<Function>;
    auto& receiver = dynamic_cast<typename Traits::Class&>(object);
    invokeReceiver<Function>(receiver, reader, target, typename Traits::Arguments(),
                             typename Traits::Results());
  }

  template <auto Function, class Receiver, class... Arguments, class... Results>
  static void invokeReceiver(Receiver& receiver, ArgumentReader& reader,
                             const Ref<ReplyTarget>& target, TypeList<Arguments...>,
                             TypeList<Results...>) {
    // Braces: the arguments are read from left to right.
    std::tuple<Arguments...> arguments{Wire<Arguments>::read(reader.next())...};
    reader.finish();
    auto call = [&](auto&&... reply) {
      std::apply(
          [&](Arguments&... values) {
            (receiver.*Function)(std::move(values)..., std::move(reply)...);
          },
          arguments);
    };
    if constexpr (MethodTraits<Function>::kHasReply) {
      call(Reply<Results...>([target](Results... values) {
        target->answer(
            [&](ArgumentWriter& writer) { (Wire<Results>::write(writer, values), ...); });
      }));
    } else {
      call();
    }
  }

  static void requireCount(std::string_view selector, std::size_t types, std::size_t names);
  void add(Method method, bool optional);

  std::string name_;
  std::string interfaceName_;
  std::vector<Method> methods_;
  std::vector<const Protocol*> adopted_;
};

}  // namespace hoist::xpc
