// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <elfutils/libdwfl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "sample/Capture.h"
#include "sample/FrameRule.h"
#include "sample/StackTree.h"

namespace hoist::sample {

class ImageMap;
class TargetProcess;

// Turns captures into stacks. Used by one thread.
class Unwinder {
 public:
  // Deeper stacks are cut off at their outer end.
  static constexpr std::size_t kMostFrames = 512;

  // Both must outlive it.
  Unwinder(const TargetProcess& process, ImageMap& images);
  ~Unwinder();

  // The capture's stack, innermost frame first; valid until the next call. Never empty.
  const std::vector<Frame>& unwind(const Capture& capture);

 private:
  class StackReader;
  struct Callbacks;

  bool unwindByRules();
  bool addFrame(Address programCounter, bool isCallersFrame);
  const FrameRule* ruleAt(Address address);
  std::optional<FrameRule> makeRule(Address address);
  void lookAtImagesAgain();
  void reportImages();
  void adaptCopy(const Capture& capture) const;

  const TargetProcess& process_;
  ImageMap& images_;
  std::unique_ptr<Dwfl, void (*)(Dwfl*)> session_;
  bool attached_ = false;
  std::chrono::steady_clock::time_point lookedAt_;

  // By address; nothing where the library is needed.
  std::unordered_map<Address, std::optional<FrameRule>> rules_;
  std::vector<Frame> frames_;
  // Of the frame that the unwinding has reached by rules.
  Registers registers_;
  bool isFirst_ = false;
  std::unique_ptr<StackReader> reader_;
};

}  // namespace hoist::sample
