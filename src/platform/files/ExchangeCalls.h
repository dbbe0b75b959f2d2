// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace hoist::files {

// The calls by which two items change places. Each answers -1 with errno set when it fails. Safe
// from any thread. A test puts another implementation in front, to make one call fail.
class ExchangeCalls {
 public:
  virtual ~ExchangeCalls();
  // Both names change at once, or none.
  virtual int swap(const char* a, const char* b);
  // The content changes, the items stay. ENOTSUP: no file system of Linux can.
  virtual int exchangedata(const char* a, const char* b);
  virtual int rename(const char* from, const char* to);

  // What the program uses.
  static ExchangeCalls& current();
};

// Puts the given calls in the place of the current ones while it lives. For tests; one at a time.
class ExchangeCallsOverride {
 public:
  explicit ExchangeCallsOverride(ExchangeCalls& calls);
  ~ExchangeCallsOverride();
  ExchangeCallsOverride(const ExchangeCallsOverride&) = delete;
  ExchangeCallsOverride& operator=(const ExchangeCallsOverride&) = delete;

 private:
  ExchangeCalls* previous_;
};

}  // namespace hoist::files
