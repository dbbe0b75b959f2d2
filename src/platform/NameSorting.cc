// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/NameSorting.h"

#include <endian.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

#include "platform/Collation.h"

// Names are sorted by pieces of their keys, eight bytes at a time, which compare as one number and
// stand in the array that is sorted. Names that agree in a piece are sorted by the next one. So a
// key is read from memory once for each of its pieces that matters, where a sort that compares keys
// reads two for each comparison; the time of a large sort is the time of such reads.

namespace hoist {
namespace {

constexpr std::size_t kPiece = sizeof(std::uint64_t);
// Room for a key: what is not used of it costs nothing, and to grow would be to copy. Picked.
constexpr std::size_t kLikelyKey = 64;

bool endsKey(std::uint64_t piece) {
  return (piece & 0xFF) == 0;
}

}  // namespace

NameSorting::NameSorting(std::size_t count) {
  names_.reserve(count);
  keys_.reserve(count * kLikelyKey);
}

void NameSorting::add(const char* name) {
  names_.push_back({name, keys_.size()});
  appendFinderLikeKey(name, keys_);
  keys_.append(kPiece, '\0');
}

std::vector<std::uint32_t> NameSorting::order() const {
  std::vector<Item> items(names_.size());
  for (std::uint32_t i = 0; i < items.size(); ++i) items[i].name = i;
  // Not recursive: names can agree in many pieces, and stacks are small.
  std::vector<Run> runs;
  if (items.size() > 1) runs.push_back({0, items.size(), 0});
  while (!runs.empty()) {
    auto run = runs.back();
    runs.pop_back();
    sortRun(items, run, runs);
  }
  std::vector<std::uint32_t> order;
  order.reserve(items.size());
  for (auto& item : items) order.push_back(item.name);
  return order;
}

std::uint64_t NameSorting::pieceOfKey(std::uint32_t name, std::size_t place) const {
  std::uint64_t bytes;
  std::memcpy(&bytes, keys_.data() + names_[name].key + place, kPiece);
  return be64toh(bytes);
}

// Leaves runs that are not in order yet for later.
void NameSorting::sortRun(std::vector<Item>& items, Run run, std::vector<Run>& later) const {
  std::span span(items.begin() + run.begin, items.begin() + run.end);
  std::uint64_t differences = 0;
  for (auto& item : span) {
    item.piece = pieceOfKey(item.name, run.place);
    differences |= item.piece ^ span.front().piece;
  }
  // What all begin with is stepped over, so that a piece begins where it tells the most apart.
  auto same = static_cast<std::size_t>(std::countl_zero(differences)) / 8;
  if (same == kPiece && endsKey(span.front().piece)) return sortByBytes(items, run);
  if (same > 0) return later.push_back({run.begin, run.end, run.place + same});
  std::ranges::sort(span, {}, &Item::piece);
  for (auto begin = run.begin, end = begin; begin < run.end; begin = end) {
    while (end < run.end && items[end].piece == items[begin].piece) ++end;
    if (end - begin == 1) continue;
    Run equal = {begin, end, run.place + kPiece};
    endsKey(items[begin].piece) ? sortByBytes(items, equal) : later.push_back(equal);
  }
}

void NameSorting::sortByBytes(std::vector<Item>& items, Run run) const {
  std::sort(items.begin() + run.begin, items.begin() + run.end, [this](auto& a, auto& b) {
    auto order = std::strcmp(names_[a.name].bytes, names_[b.name].bytes);
    return order != 0 ? order < 0 : a.name < b.name;
  });
}

}  // namespace hoist
