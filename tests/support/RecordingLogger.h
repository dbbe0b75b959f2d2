// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "logging/Logger.h"
#include "platform/Mutex.h"

namespace hoist {

struct LoggedLine {
  Classification classification;
  std::string text;
  // The identifiers of the line and of the one that it is in.
  std::string line;
  std::string parent;
};

// The default logger while it lives; keeps what is logged, whatever its classification.
class LogRecorder {
 public:
  LogRecorder() : logger_(make<Recorder>()) { Logger::setDefaultLogger(logger_); }
  ~LogRecorder() { Logger::releaseDefaultLogger(); }
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  std::vector<LoggedLine> lines() const {
    MutexLock lock(logger_->mutex);
    return logger_->lines;
  }
  // The texts of one classification.
  std::vector<std::string> texts(Classification classification) const {
    std::vector<std::string> texts;
    for (auto& line : lines()) {
      if (line.classification == classification) texts.push_back(line.text);
    }
    return texts;
  }
  std::vector<std::string> texts() const {
    std::vector<std::string> texts;
    for (auto& line : lines()) texts.push_back(line.text);
    return texts;
  }

 private:
  struct Recorder final : Logger {
    Ref<LogLineIdentifier> logInLineMessage(Classification classification,
                                            const Ref<LogLineIdentifier>& parent,
                                            LogMessage message) override {
      std::string storage;
      std::string text(message.text(storage));
      auto line = Logger::logInLineMessage(classification, parent, text);
      MutexLock lock(mutex);
      lines.push_back({classification, text, line->description(),
                       (parent ? parent : Logger::rootLogLine())->description()});
      return line;
    }
    std::string className() const override { return "RecordingLogger"; }

    Mutex mutex;
    std::vector<LoggedLine> lines GUARDED_BY(mutex);
  };

  const Ref<Recorder> logger_;
};

}  // namespace hoist
