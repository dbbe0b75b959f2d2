// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "sample/StackTree.h"

namespace hoist::sample {

// A function as reports show it.
struct Function {
  std::string name;
  // Of the image that it is in; empty outside of any.
  std::string imageName;
  // Where it begins; the frame's own address when that is not known.
  Address start = 0;
};

// Names the frames of samples; each function exists once, so that two frames are of one function if
// their pointers are equal. Used by one thread.
class Functions {
 public:
  Functions();

  const Function* of(const Frame& frame);
  // Stands in the place of a stack that could not be had.
  const Function* outOfReach() const { return outOfReach_.get(); }

 private:
  struct Place {
    const Image* image;
    Address address;
    friend bool operator==(const Place&, const Place&) = default;
  };
  struct Hash {
    std::size_t operator()(const Place& place) const {
      return place.address * 0x9e3779b97f4a7c15u ^ reinterpret_cast<std::size_t>(place.image);
    }
  };
  const Function* at(const Image* image, Function function);

  std::unordered_map<Place, const Function*, Hash> byAddress_;
  std::unordered_map<Place, std::unique_ptr<Function>, Hash> byStart_;
  std::unique_ptr<Function> outOfReach_;
};

}  // namespace hoist::sample
