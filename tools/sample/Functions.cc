// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Functions.h"

#include <fmt/format.h>

#include "sample/Image.h"
#include "sample/SymbolTable.h"

namespace hoist::sample {
namespace {

Function describe(const Frame& frame) {
  if (frame.image == nullptr) {
    return {fmt::format("{:#x}", frame.address), {}, frame.address};
  }
  if (auto function = frame.image->symbols().functionAt(frame.address)) {
    return {std::move(function->name), frame.image->name(), function->start};
  }
  return {fmt::format("{}+{:#x}", frame.image->name(), frame.address - frame.image->range().start),
          frame.image->name(), frame.address};
}

}  // namespace

Functions::Functions()
    : outOfReach_(std::make_unique<Function>(
          Function{"out of reach: waiting in the kernel or for a processor", {}, 0})) {}

const Function* Functions::of(const Frame& frame) {
  auto [found, isNew] = byAddress_.try_emplace({frame.image, frame.address});
  if (isNew) found->second = at(frame.image, describe(frame));
  return found->second;
}

const Function* Functions::at(const Image* image, Function function) {
  auto [found, isNew] = byStart_.try_emplace({image, function.start});
  if (isNew) found->second = std::make_unique<Function>(std::move(function));
  return found->second.get();
}

}  // namespace hoist::sample
