// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "logging/Logger.h"
#include "platform/Mutex.h"

namespace hoist {

struct LoggedLine {
  Classification classification;
  std::string text;
  // The line's identifier.
  std::string line;
  friend bool operator==(const LoggedLine&, const LoggedLine&) = default;
  friend void PrintTo(const LoggedLine& line, std::ostream* out) {
    *out << line.classification << " \"" << line.text << "\" [" << line.line << "]";
  }
};

// Keeps every line, whatever its classification, and writes nothing.
class RecordingLogger : public Logger {
 public:
  std::optional<std::string> formatMessage(std::string_view message, const LogLineIdentifier& line,
                                           Classification classification,
                                           std::string_view) override {
    MutexLock lock(mutex_);
    lines_.push_back({classification, std::string(message), line.description()});
    return std::nullopt;
  }

  std::vector<LoggedLine> lines() const {
    MutexLock lock(mutex_);
    return lines_;
  }
  // The texts of the lines of one classification.
  std::vector<std::string> texts(Classification classification) const {
    std::vector<std::string> texts;
    for (const auto& line : lines()) {
      if (line.classification == classification) texts.push_back(line.text);
    }
    return texts;
  }
  std::vector<std::string> texts() const {
    std::vector<std::string> texts;
    for (const auto& line : lines()) texts.push_back(line.text);
    return texts;
  }
  void clear() {
    MutexLock lock(mutex_);
    lines_.clear();
  }

 private:
  mutable Mutex mutex_;
  std::vector<LoggedLine> lines_ GUARDED_BY(mutex_);
};

// Makes a logger the default one for as long as this object lives; afterwards the default is chosen
// anew.
template <class Kind = RecordingLogger>
class ScopedDefaultLogger {
 public:
  ScopedDefaultLogger() : ScopedDefaultLogger(make<Kind>()) {}
  explicit ScopedDefaultLogger(Ref<Kind> logger) : logger_(std::move(logger)) {
    Logger::setDefaultLogger(logger_);
  }
  ~ScopedDefaultLogger() { Logger::releaseDefaultLogger(); }
  ScopedDefaultLogger(const ScopedDefaultLogger&) = delete;
  ScopedDefaultLogger& operator=(const ScopedDefaultLogger&) = delete;
  Kind* operator->() const { return logger_.get(); }
  Kind& operator*() const { return *logger_; }

 private:
  Ref<Kind> logger_;
};

// A recording logger that is the default one.
class LogRecorder : public ScopedDefaultLogger<RecordingLogger> {
 public:
  std::vector<LoggedLine> lines() const { return (*this)->lines(); }
  std::vector<std::string> texts(Classification classification) const {
    return (*this)->texts(classification);
  }
  std::vector<std::string> texts() const { return (*this)->texts(); }
};

}  // namespace hoist
