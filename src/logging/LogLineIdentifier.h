// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "logging/Classification.h"
#include "values/Object.h"

namespace hoist {

class Decoder;

// Names one logged line by its place in a tree: the application, the run, the process, then each
// line and the lines logged inside it. Printed it is dotted decimal, "7.73926658.412.5.2": the
// second line logged inside the fifth line of process 412. A child keeps its whole ancestry alive,
// a parent keeps only the count of its children.
//
// Parent and sequence never change; mask and count are atomics, so any thread may log inside any
// line.
class LogLineIdentifier : public Object {
 public:
  // The topmost identifier has no parent; its sequence is the application number.
  LogLineIdentifier(Ref<LogLineIdentifier> parent, std::uint64_t sequence);
  ~LogLineIdentifier() override;

  // initExtending:withID:
  static Ref<LogLineIdentifier> initExtending(Ref<LogLineIdentifier> parent,
                                              std::uint64_t sequence);

  // The identifier that a dotted text describes, nothing for the empty text. Deliberately
  // unvalidated: any character counts as its code minus 48, a component that is missing before a
  // dot is 0, and one that is missing at the end is none.
  static Ref<LogLineIdentifier> logLineIdentifierFromString(std::string_view text);

  const Ref<LogLineIdentifier>& parent() const { return parent_; }
  std::uint64_t sequence() const { return sequence_; }
  // How many children next() has issued.
  std::uint64_t count() const { return subsequence_.load(std::memory_order_relaxed); }
  // Bit n is set when a message of classification n was logged directly inside this line.
  std::uint16_t classifications() const { return classifications_.load(std::memory_order_relaxed); }
  // Sets the classification's bit (its number modulo 32; bits above 15 are not kept). A negative
  // number sets none.
  void noteClassification(Classification classification);

  // The number of ancestors.
  std::size_t depth() const;
  // The sequence of the topmost ancestor.
  std::uint64_t application() const;
  // A new child; the first is numbered 1. Needs an identifier that is held by a Ref.
  virtual Ref<LogLineIdentifier> next();
  // The ancestor at that depth; the receiver itself when its depth is that or less.
  Ref<LogLineIdentifier> parentIdentifierWithDepth(std::size_t wanted);
  // Whether this is a proper ancestor of the other. Nothing contains itself.
  bool containsIdentifier(const LogLineIdentifier& other) const;
  // A pin of this identifier.
  virtual Ref<LogLineIdentifier> pinned();

  // -1, 0 or 1. Nothing orders before something, and an identifier with fewer ancestors before one
  // with more; of equally many, component by component from the top.
  static int compare(const LogLineIdentifier* a, const LogLineIdentifier* b);
  int compare(const LogLineIdentifier& other) const { return compare(this, &other); }

  void appendIdentifierToString(std::string& text) const;

  std::string className() const override { return "LogLineIdentifier"; }
  std::string description() const override;
  bool isEqual(const Object& other) const override;
  std::size_t hash() const override;
  bool isCodable() const override { return true; }
  // Keyed: "parent", "classmap", "seq", "subseq". Sequential: the parent, then mask, sequence and
  // count as 32-bit numbers.
  void encodeWithCoder(Encoder& encoder) const override;

  // Makes LogLineIdentifier and LogLinePin known to the class registry.
  static void registerClasses();

 private:
  template <class Identifier>
  static Ref<Object> decode(Decoder& decoder);

  Ref<LogLineIdentifier> parent_;
  const std::uint64_t sequence_;
  std::atomic<std::uint64_t> subsequence_ = 0;
  std::atomic<std::uint16_t> classifications_ = 0;
};

// An identifier that never advances: everything that is logged inside it carries the same
// identifier. It prints, compares and hashes like the identifier that it was made of.
class LogLinePin final : public LogLineIdentifier {
 public:
  using LogLineIdentifier::LogLineIdentifier;
  static Ref<LogLinePin> initWithIdentifier(const LogLineIdentifier& identifier);

  Ref<LogLineIdentifier> next() override;
  Ref<LogLineIdentifier> pinned() override;
  std::string className() const override { return "LogLinePin"; }
};

}  // namespace hoist
