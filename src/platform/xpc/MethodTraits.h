// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "platform/xpc/Reply.h"

// What a member function of an interface class says of the operation that it declares.
namespace hoist::xpc {

template <class... Types>
struct TypeList {};

// Parts a parameter list into arguments and the values of the reply block, which stands last.
template <class Done, class... Rest>
struct SplitParameters;
template <class... Done>
struct SplitParameters<TypeList<Done...>> {
  using Arguments = TypeList<Done...>;
  using Results = TypeList<>;
  static constexpr bool kHasReply = false;
};
template <class... Done, class... Values>
struct SplitParameters<TypeList<Done...>, Reply<Values...>> {
  using Arguments = TypeList<Done...>;
  using Results = TypeList<Values...>;
  static constexpr bool kHasReply = true;
};
template <class... Done, class First, class... Rest>
struct SplitParameters<TypeList<Done...>, First, Rest...>
    : SplitParameters<TypeList<Done..., First>, Rest...> {};

template <class Function>
struct FunctionTraits;
template <class Receiver, class... Parameters>
struct FunctionTraits<void (Receiver::*)(Parameters...)>
    : SplitParameters<TypeList<>, std::remove_cvref_t<Parameters>...> {
  using Class = Receiver;
};

template <auto Function>
using MethodTraits = FunctionTraits<decltype(Function)>;

// A different address for every member function: how a proxy finds the operation's declaration.
template <auto Function>
inline constexpr char kMethodTag = 0;
template <auto Function>
inline constexpr const void* keyOf = &kMethodTag<Function>;

}  // namespace hoist::xpc
