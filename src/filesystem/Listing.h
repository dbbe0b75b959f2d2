// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <memory_resource>
#include <string_view>

#include "platform/attrlist/AttributeCalls.h"
#include "values/Ref.h"

namespace hoist {

class PXPath;

// What one step of reading a folder brings: some dozens of children with their names, in one block
// of memory, and where the folder is. It lives as long as the last of its children, because it is
// their memory. Filled by one thread; the children may go away on any.
class Listing final : private std::pmr::memory_resource {
 public:
  struct LetGo {
    void operator()(Listing* listing) const { listing->letGo(kFilling - listing->made_); }
  };
  // Whoever fills it holds it until it is filled.
  using Hold = std::unique_ptr<Listing, LetGo>;

  // The block is as large as what is expected to be made, and grows when more is.
  static Hold ofFolder(Ref<PXPath> folder, std::size_t bytes) {
    return Hold(new Listing(std::move(folder), bytes));
  }

  const Ref<PXPath>& folder() const { return folder_; }

  // A copy of the name, NUL-terminated, that lives as long as the listing.
  const char* keepName(std::string_view name);

  // An object that keeps the listing alive.
  template <class T, class... Args>
  Ref<T> make(Args&&... args) {
    return std::allocate_shared<T>(std::pmr::polymorphic_allocator<T>(this),
                                   std::forward<Args>(args)...);
  }
  // Upper bound of what make and keepName take.
  template <class T>
  static constexpr std::size_t roomFor(std::size_t nameLength) {
    constexpr std::size_t kCounts = 24;  // what a Ref keeps beside its object
    return sizeof(T) + kCounts + nameLength + sizeof(void*);
  }

 private:
  Listing(Ref<PXPath> folder, std::size_t bytes) : folder_(std::move(folder)), memory_(bytes) {}
  ~Listing() override;

  void letGo(std::size_t holds);

  void* do_allocate(std::size_t bytes, std::size_t alignment) override;
  void do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) override;
  bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }

  const Ref<PXPath> folder_;
  std::pmr::monotonic_buffer_resource memory_;
  // The filler's, which count for more than all objects ever made, and one for each object: so the
  // objects need not be counted one by one where two threads could see it.
  static constexpr std::size_t kFilling = std::size_t{1} << 32;
  std::size_t made_ = 0;
  std::atomic<std::size_t> holds_ = kFilling;
};

// A child as its folder's reading makes it.
struct ListedItem {
  const Listing& listing;
  const char* name;  // kept by the listing
  const attrlist::BulkEntry& entry;
};

}  // namespace hoist
