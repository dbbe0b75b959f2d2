// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "platform/PropertyList.h"
#include "platform/PropertyListCheck.h"

// A binary property list is a table of objects that refer to each other by number. libplist writes
// every reference out as a copy and recurses into it, so thirty containers that each name the next
// one twice would be a billion. This walk visits each object once, with its own stack, and adds up
// how deep and how large the written-out list would be before libplist sees a byte of it.

namespace hoist::platform {
namespace {

constexpr std::size_t kHeaderSize = 8;    // "bplist00"
constexpr std::size_t kTrailerSize = 32;  // 6 unused, two sizes, three 64-bit numbers
// Dates outside the years 1 to 9999 cannot be written as text. Seconds since 2001.
constexpr double kEarliestDate = -63'113'904'000.0;
constexpr double kLatestDate = 252'423'993'599.0;

[[noreturn]] void refuse(const char* why) {
  throw PropertyListError(std::string("not a usable binary property list: ") + why);
}

enum class Type { Leaf, Text, Container };

struct Item {
  Type type = Type::Leaf;
  std::uint64_t bytes = 0;       // of the payload, as libplist will hold it
  std::uint64_t references = 0;  // that follow
  std::uint64_t keys = 0;        // of these, from the beginning: must be texts
  std::size_t at = 0;            // where the references begin
};

// An object and all that is inside it. Small, because a hostile list has many; the sums saturate.
struct Extent {
  std::uint32_t nodes = 0;
  std::uint32_t bytes = 0;
  std::uint16_t depth = 0;
  bool text = false;
  enum class State : std::uint8_t { Unseen, Open, Known } state = State::Unseen;
};

void addTo(std::uint32_t& sum, std::uint64_t value) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  sum = static_cast<std::uint32_t>(std::min(sum + std::min(value, kMost), kMost));
}

class Checker {
 public:
  explicit Checker(std::span<const std::uint8_t> bytes) : bytes_(bytes) { readTrailer(); }

  void check() {
    walk();
    const Extent& whole = extents_[root_];
    if (whole.nodes > kMaximumExpandedNodes + bytes_.size()) refuse("too many objects");
    if (whole.bytes > kMaximumExpandedBytes + bytes_.size()) refuse("too large written out");
  }

 private:
  struct Step {
    std::uint64_t object;
    Item item;
    std::uint64_t next = 0;
  };

  std::uint64_t number(std::size_t at, std::size_t size) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8 | bytes_[at + i];
    return value;
  }

  void readTrailer() {
    if (bytes_.size() < kHeaderSize + kTrailerSize) refuse("too short");
    if (bytes_.size() > kMaximumPropertyListSize) refuse("too long");
    std::size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = bytes_[trailer + 6];
    referenceSize_ = bytes_[trailer + 7];
    std::uint64_t count = number(trailer + 8, 8);
    root_ = number(trailer + 16, 8);
    table_ = number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      refuse("unknown sizes");
    }
    if (table_ < kHeaderSize || table_ > trailer) refuse("no offset table");
    if (count == 0 || count > (trailer - table_) / offsetSize_) refuse("offset table cut off");
    if (root_ >= count) refuse("no outermost object");
    extents_.resize(count);
  }

  // Takes a size that follows the marker as an integer object when the marker's low half is full.
  std::uint64_t sizeAfter(std::size_t& at, std::uint8_t low) const {
    if (low != 0x0F) return low;
    if (at >= table_ || bytes_[at] >> 4 != 1 || (bytes_[at] & 0x0F) > 3) refuse("bad length");
    std::size_t width = std::size_t{1} << (bytes_[at++] & 0x0F);
    if (width > table_ - at) refuse("length cut off");
    std::uint64_t size = number(at, width);
    at += width;
    return size;
  }

  void require(std::size_t at, std::uint64_t count, std::uint64_t width) const {
    if (count > (table_ - at) / width) refuse("object cut off");
  }

  void checkDate(std::size_t at) const {
    double seconds = std::bit_cast<double>(number(at, 8));
    if (!(seconds >= kEarliestDate && seconds <= kLatestDate)) refuse("date out of range");
  }

  Item read(std::uint64_t object) const {
    std::uint64_t offset = number(table_ + object * offsetSize_, offsetSize_);
    if (offset < kHeaderSize || offset >= table_) refuse("object out of range");
    std::size_t at = offset;
    std::uint8_t high = bytes_[at] >> 4;
    std::uint8_t low = bytes_[at] & 0x0F;
    ++at;
    Item item;
    switch (high) {
      case 0x0:
        if (low != 0x8 && low != 0x9) refuse("unknown object");
        return item;
      case 0x1:
        if (low > 4) refuse("unknown integer");
        require(at, 1, std::uint64_t{1} << low);
        return item;
      case 0x2:
        if (low != 2 && low != 3) refuse("unknown real");
        require(at, 1, std::uint64_t{1} << low);
        return item;
      case 0x3:
        if (low != 3) refuse("unknown date");
        require(at, 1, 8);
        checkDate(at);
        return item;
      case 0x8:
        if (low > 7) refuse("unknown reference");
        require(at, 1, std::uint64_t{low} + 1);
        return item;
      case 0x4:
      case 0x5:
      case 0x6:
        item.bytes = sizeAfter(at, low);
        require(at, item.bytes, high == 0x6 ? 2 : 1);
        if (high == 0x6) item.bytes *= 3;
        if (high != 0x4) item.type = Type::Text;
        return item;
      case 0xA:
      case 0xD:
        item.type = Type::Container;
        item.references = sizeAfter(at, low);
        require(at, item.references, std::uint64_t{referenceSize_} * (high == 0xD ? 2 : 1));
        if (high == 0xD) {
          item.keys = item.references;
          item.references *= 2;
        }
        item.at = at;
        return item;
      default:
        refuse("unknown object");
    }
  }

  void enter(std::uint64_t object) {
    Item item = read(object);
    Extent& extent = extents_[object];
    extent.text = item.type == Type::Text;
    extent.nodes = 1;
    addTo(extent.bytes, item.bytes);
    if (item.type == Type::Container) {
      extent.state = Extent::State::Open;
      extent.depth = 1;
      stack_.push_back({object, item});
    } else {
      extent.state = Extent::State::Known;
    }
  }

  void add(Extent& outer, const Extent& inner, bool asKey) {
    if (asKey && !inner.text) refuse("a key that is no text");
    addTo(outer.nodes, inner.nodes);
    addTo(outer.bytes, inner.bytes);
    outer.depth = static_cast<std::uint16_t>(std::max<int>(outer.depth, inner.depth + 1));
    if (outer.depth > kMaximumPropertyListDepth) refuse("nested too deep");
  }

  void walk() {
    enter(root_);
    while (!stack_.empty()) {
      Step& step = stack_.back();
      if (step.next == step.item.references) {
        extents_[step.object].state = Extent::State::Known;
        stack_.pop_back();
        continue;
      }
      std::uint64_t inner = number(step.item.at + step.next * referenceSize_, referenceSize_);
      if (inner >= extents_.size()) refuse("reference out of range");
      switch (extents_[inner].state) {
        case Extent::State::Unseen:
          // The walk comes back to this reference when all that is inside is known.
          if (stack_.size() > kMaximumPropertyListDepth) refuse("nested too deep");
          enter(inner);
          break;
        case Extent::State::Open:
          refuse("contains itself");
        case Extent::State::Known:
          add(extents_[step.object], extents_[inner], step.next < step.item.keys);
          ++step.next;
      }
    }
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t root_ = 0;
  std::uint64_t table_ = 0;
  std::vector<Extent> extents_;
  std::vector<Step> stack_;
};

}  // namespace

void checkBinaryPropertyList(std::span<const std::uint8_t> bytes) {
  Checker(bytes).check();
}

}  // namespace hoist::platform
