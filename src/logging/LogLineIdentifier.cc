// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/LogLineIdentifier.h"

#include "values/ClassRegistry.h"
#include "values/Coder.h"

// Nothing here recurses over the ancestry: a text can describe an identifier of any depth, and the
// daemon's threads have small stacks.

namespace hoist {
namespace {

Ref<LogLineIdentifier> self(LogLineIdentifier& identifier) {
  return std::static_pointer_cast<LogLineIdentifier>(identifier.shared_from_this());
}

const AllowedClasses& identifierClasses() {
  static const auto& classes = *new AllowedClasses{"LogLineIdentifier"};
  return classes;
}

// Nothing is no parent; anything else must be an identifier.
Ref<LogLineIdentifier> identifierIn(const std::optional<Value>& value) {
  if (!value) return nullptr;
  auto identifier = value->objectAs<LogLineIdentifier>();
  if (!identifier) throw DecodeError("the parent is no line identifier");
  return identifier;
}

std::optional<Value> valueOf(const Ref<LogLineIdentifier>& identifier) {
  return identifier ? std::optional<Value>(identifier) : std::nullopt;
}

}  // namespace

LogLineIdentifier::LogLineIdentifier(Ref<LogLineIdentifier> parent, std::uint64_t sequence)
    : parent_(std::move(parent)), sequence_(sequence) {}

LogLineIdentifier::~LogLineIdentifier() {
  // Ancestors that nobody else holds are let go one by one.
  auto ancestor = std::move(parent_);
  while (ancestor && ancestor.use_count() == 1) ancestor = std::move(ancestor->parent_);
}

Ref<LogLineIdentifier> LogLineIdentifier::initExtending(Ref<LogLineIdentifier> parent,
                                                        std::uint64_t sequence) {
  return make<LogLineIdentifier>(std::move(parent), sequence);
}

Ref<LogLineIdentifier> LogLineIdentifier::logLineIdentifierFromString(std::string_view text) {
  Ref<LogLineIdentifier> identifier;
  while (!text.empty()) {
    std::string_view component = text.substr(0, text.find('.'));
    std::uint64_t value = 0;
    for (unsigned char character : component) value = value * 10 + character - '0';
    identifier = initExtending(std::move(identifier), value);
    text.remove_prefix(std::min(component.size() + 1, text.size()));
  }
  return identifier;
}

void LogLineIdentifier::noteClassification(Classification classification) {
  if (classification < 0) return;
  auto bit = static_cast<std::uint16_t>(std::uint32_t{1} << (classification % 32));
  // Nearly always it is set already, and then the line's memory is not written.
  if ((classifications() & bit) != bit) classifications_.fetch_or(bit, std::memory_order_relaxed);
}

std::size_t LogLineIdentifier::depth() const {
  std::size_t depth = 0;
  for (auto* ancestor = parent_.get(); ancestor; ancestor = ancestor->parent_.get()) ++depth;
  return depth;
}

std::uint64_t LogLineIdentifier::application() const {
  const LogLineIdentifier* topmost = this;
  while (topmost->parent_) topmost = topmost->parent_.get();
  return topmost->sequence_;
}

Ref<LogLineIdentifier> LogLineIdentifier::next() {
  auto number = subsequence_.fetch_add(1, std::memory_order_relaxed) + 1;
  return initExtending(self(*this), number);
}

Ref<LogLineIdentifier> LogLineIdentifier::parentIdentifierWithDepth(std::size_t wanted) {
  auto identifier = self(*this);
  for (auto current = depth(); current > wanted; --current) identifier = identifier->parent_;
  return identifier;
}

bool LogLineIdentifier::containsIdentifier(const LogLineIdentifier& other) const {
  std::size_t own = depth();
  std::size_t below = other.depth();
  if (own >= below) return false;
  const LogLineIdentifier* ancestor = &other;
  for (; below > own; --below) ancestor = ancestor->parent_.get();
  return isEqual(*ancestor);
}

Ref<LogLineIdentifier> LogLineIdentifier::pinned() {
  return LogLinePin::initWithIdentifier(*this);
}

int LogLineIdentifier::compare(const LogLineIdentifier* a, const LogLineIdentifier* b) {
  int result = 0;
  // On the way up, what differs further up outweighs what differed below.
  while (a != b) {
    if (!a) return -1;
    if (!b) return 1;
    if (a->sequence_ != b->sequence_) result = a->sequence_ < b->sequence_ ? -1 : 1;
    a = a->parent_.get();
    b = b->parent_.get();
  }
  return result;
}

void LogLineIdentifier::appendIdentifierToString(std::string& text) const {
  std::vector<std::uint64_t> components;
  for (auto* identifier = this; identifier; identifier = identifier->parent_.get()) {
    components.push_back(identifier->sequence_);
  }
  while (!components.empty()) {
    text += std::to_string(components.back());
    components.pop_back();
    if (!components.empty()) text += '.';
  }
}

std::string LogLineIdentifier::description() const {
  std::string text;
  text.reserve(32);
  appendIdentifierToString(text);
  return text;
}

bool LogLineIdentifier::isEqual(const Object& other) const {
  auto* identifier = dynamic_cast<const LogLineIdentifier*>(&other);
  return identifier && compare(*identifier) == 0;
}

std::size_t LogLineIdentifier::hash() const {
  std::uint64_t hash = (sequence_ << 48) ^ (sequence_ * 4);
  unsigned shift = 48;
  for (auto* ancestor = parent_.get(); ancestor; ancestor = ancestor->parent_.get()) {
    shift = shift < 3 ? 48 : shift - 3;
    hash ^= ancestor->sequence_ << shift;
  }
  return hash;
}

void LogLineIdentifier::encodeWithCoder(Encoder& encoder) const {
  if (encoder.isKeyed()) {
    encoder.encodeObject("parent", valueOf(parent_));
    encoder.encodeInteger("classmap", classifications());
    encoder.encodeInteger("seq", static_cast<std::int64_t>(sequence_));
    encoder.encodeInteger("subseq", static_cast<std::int64_t>(count()));
  } else {
    encoder.encodeObject(valueOf(parent_));
    encoder.encodeUInt32(classifications());
    encoder.encodeUInt32(static_cast<std::uint32_t>(sequence_));
    encoder.encodeUInt32(static_cast<std::uint32_t>(count()));
  }
}

template <class Identifier>
Ref<Object> LogLineIdentifier::decode(Decoder& decoder) {
  bool keyed = decoder.isKeyed();
  auto parent = identifierIn(keyed ? decoder.decodeObject("parent", identifierClasses())
                                   : decoder.decodeObject(identifierClasses()));
  auto classmap = keyed ? static_cast<std::uint32_t>(decoder.decodeInteger("classmap"))
                        : decoder.decodeUInt32();
  auto sequence =
      keyed ? static_cast<std::uint64_t>(decoder.decodeInteger("seq")) : decoder.decodeUInt32();
  auto count =
      keyed ? static_cast<std::uint64_t>(decoder.decodeInteger("subseq")) : decoder.decodeUInt32();
  auto identifier = make<Identifier>(std::move(parent), sequence);
  // Through the base: a pin keeps its fields as private as it found them.
  LogLineIdentifier& fields = *identifier;
  fields.classifications_ = static_cast<std::uint16_t>(classmap);
  fields.subsequence_ = count;
  return identifier;
}

void LogLineIdentifier::registerClasses() {
  ClassRegistry::shared().add({.name = "LogLineIdentifier",
                               .superclass = "",
                               .decode = decode<LogLineIdentifier>,
                               .create = nullptr,
                               .classObject = nullptr});
  ClassRegistry::shared().add({.name = "LogLinePin",
                               .superclass = "LogLineIdentifier",
                               .decode = decode<LogLinePin>,
                               .create = nullptr,
                               .classObject = nullptr});
}

Ref<LogLinePin> LogLinePin::initWithIdentifier(const LogLineIdentifier& identifier) {
  return make<LogLinePin>(identifier.parent(), identifier.sequence());
}

Ref<LogLineIdentifier> LogLinePin::next() {
  return self(*this);
}

Ref<LogLineIdentifier> LogLinePin::pinned() {
  return self(*this);
}

}  // namespace hoist
