// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "logging/BacktraceCache.h"
#include "logging/Classification.h"
#include "logging/LogLineIdentifier.h"
#include "logging/LogMessage.h"
#include "platform/DateFormatter.h"
#include "platform/Exception.h"
#include "values/Data.h"
#include "values/Error.h"
#include "values/Value.h"

namespace hoist {

// The one logging facility of the process. Every message has a classification and is logged inside
// a parent line; the call answers the identifier of the new line, inside which more can be logged.
// Where no parent is given, or a null one, the parent is the root line.
//
// Two families of functions. The class operations are static, have short names and go to the
// default logger: these are what the program calls. The instance operations carry the keywords of
// their selectors in their names (log:inLine:message: is logInLineMessage): these are what a kind
// of logger overrides and what speaks to a particular logger.
//
// Safe to use from any thread; no lock is held while a line is written. Nothing is thrown but what
// the making of a message throws.
class Logger : public Object {
 public:
  // ---- The default logger and what all loggers share ----

  // Chosen and installed at the first call: the classes "NullLogger" and "NSLogLogger" of the class
  // registry are tried, the former first when running as root, then "LogFileLogger" in their place.
  // Raises AssertionFailure if none of them can be made.
  static Ref<Logger> defaultLogger();
  // The old one is released before the new one is reopened and installed.
  static void setDefaultLogger(const Ref<Logger>& logger);
  // The next call of defaultLogger() chooses anew.
  static void releaseDefaultLogger();

  // "APPLICATION.DAYS-AND-HUNDREDTHS.PROCESS", made at the first call, kept for the process.
  static const Ref<LogLineIdentifier>& rootLogLine();
  // What the root line is for a process that starts logging at that instant.
  static Ref<LogLineIdentifier> makeRootLogLine(Date now, std::uint64_t processIdentifier);

  // The lines of placeholders. Null: none is stored; setting null removes the key.
  static Ref<LogLineIdentifier> logLineForKey(std::string_view key);
  static void setLogLine(const Ref<LogLineIdentifier>& line, std::string_view key);

  static std::string_view nameOfClassification(Classification classification) {
    return classification::name(classification);
  }
  static Classification classificationFromName(std::string_view name) {
    return classification::fromName(name);
  }
  // "yyyy-MM-dd HH:mm:ss.SSS Z"
  static Ref<DateFormatter> makeLogDateFormatter();

  // Makes NSLogLogger known to the class registry. defaultLogger() does so by itself.
  static void registerClasses();
  // From now on the platform's reports come here, with the classification that they name; what was
  // raised and ended there comes as a Failure with the exception's details.
  static void receivePlatformTrouble();

  // ---- Class operations: messages ----

  // log:message:
  static Ref<LogLineIdentifier> log(Classification classification, LogMessage message);
  // log:inLine:message:
  static Ref<LogLineIdentifier> log(Classification classification,
                                    const Ref<LogLineIdentifier>& parent, LogMessage message);
  // Written once for each key in the life of the process; later calls answer the first one's line.
  // log:placeholder:forKey:, log:inLine:placeholder:forKey:
  static Ref<LogLineIdentifier> logPlaceholder(Classification classification, LogMessage message,
                                               std::string_view key);
  static Ref<LogLineIdentifier> logPlaceholder(Classification classification,
                                               const Ref<LogLineIdentifier>& parent,
                                               LogMessage message, std::string_view key);
  // The placeholder, inside it a placeholder for each distinct reason, and inside that the
  // exceptions themselves, 60 at most. Without an exception (null), the placeholder alone. Answers
  // the innermost placeholder. log:inLine:placeholder:forKey:byException:
  static Ref<LogLineIdentifier> logPlaceholder(Classification classification,
                                               const Ref<LogLineIdentifier>& parent,
                                               LogMessage message, std::string_view key,
                                               const Exception* exception);

  // ---- Class operations: entries of several lines ----

  // logException:, log:exception:, log:inLine:exception:; details are classified by KLException's
  // map. Without a classification, the one that the exception prefers.
  static Ref<LogLineIdentifier> logException(const Exception& exception);
  static Ref<LogLineIdentifier> logException(Classification classification,
                                             const Exception& exception);
  static Ref<LogLineIdentifier> logException(Classification classification,
                                             const Ref<LogLineIdentifier>& parent,
                                             const Exception& exception);
  // Null and nothing is logged when the exception is the one that was logged last.
  // logNewException:, log:newException:
  static Ref<LogLineIdentifier> logNewException(const Exception& exception);
  static Ref<LogLineIdentifier> logNewException(Classification classification,
                                                const Exception& exception);
  // The message and, inside it as Details, the exception if there is one. Answers the message's
  // line. log:inLine:message:exceptionDetails:
  static Ref<LogLineIdentifier> logMessageWithExceptionDetails(Classification classification,
                                                               const Ref<LogLineIdentifier>& parent,
                                                               LogMessage message,
                                                               const Exception* exception);
  // An error as an exception; the message defaults to the error's description, then to "Unexpected
  // error". log:message:error:
  static Ref<LogLineIdentifier> logError(Classification classification,
                                         const std::optional<std::string>& message,
                                         const Ref<Error>& error);
  static Ref<LogLineIdentifier> logDebugError(const Ref<Error>& error);
  // log:inLine:key:value:
  static Ref<LogLineIdentifier> logKeyValue(Classification classification,
                                            const Ref<LogLineIdentifier>& parent,
                                            std::string_view key,
                                            const std::optional<Value>& value);

  // ---- Instance operations ----

  Logger();
  ~Logger() override;

  // log:inLine:message:. Every logging call ends here.
  virtual Ref<LogLineIdentifier> logInLineMessage(Classification classification,
                                                  const Ref<LogLineIdentifier>& parent,
                                                  LogMessage message);
  // An exception as a tree of lines: its reason, inside it its name, its details and its backtrace,
  // the frames of which are written once and later referred to by their tag. No map: every detail
  // is logged as Details. Answers the top line. log:map:inLine:exception:
  Ref<LogLineIdentifier> logMapInLineException(Classification classification,
                                               const ClassificationMap* map,
                                               const Ref<LogLineIdentifier>& parent,
                                               const Exception& exception);
  // Whether it is not the very exception that was logged last.
  bool isNewException(const Exception& exception) const;
  // A header line with the length, inside it rows of 64 bytes. With a tail length, of a long block
  // only as many bytes at both ends, rounded up to whole rows. log:inLine:key:data:tail:
  void logInLineKeyData(Classification classification, const Ref<LogLineIdentifier>& parent,
                        std::string_view key, const Data& data, std::size_t tail);
  // log:map:inLine:dictionary:
  void logMapInLineDictionary(Classification classification, const ClassificationMap* map,
                              const Ref<LogLineIdentifier>& parent, const Dictionary& dictionary);
  // The key and the value; members of a dictionary or an array become lines of their own, inside.
  // log:inLine:key:value:
  Ref<LogLineIdentifier> logInLineKeyValue(Classification classification,
                                           const Ref<LogLineIdentifier>& parent,
                                           std::string_view key, const std::optional<Value>& value);

  // Whether a line of that classification can be written at all. Asked before its text is made.
  virtual bool writesClassification(Classification classification) const;
  // The finished text, or nothing for a line that is not written. formatMessage:inLine:class:
  // classString:
  virtual std::optional<std::string> formatMessage(std::string_view message,
                                                   const LogLineIdentifier& line,
                                                   Classification classification,
                                                   std::string_view classString);
  // Passes the text on to logCString, as ASCII with escapes.
  virtual void logMessage(std::string_view text);
  // The sink. The base class's does nothing.
  virtual void logCString(const char* text);

  const Ref<DateFormatter>& dateFormatter() const { return dateFormatter_; }
  // When a logger that uses the base class's layout is reopened next: at the start of the next
  // local day.
  Date reopenDate();
  // The current instant; reopens first when that is due.
  Date logDateReopeningLogger();
  // The base class's only empties the backtrace cache; a logger that owns a file reopens it.
  virtual void reopen();
  void flushBacktraceCache();

  virtual void flush();
  virtual void rotateLogKeeping(unsigned count);
  virtual std::vector<std::string> logFiles() const;

  std::string className() const override { return "Logger"; }

 protected:
  // Puts out the finished text of a line; the base class's is logMessage().
  virtual void writeLine(std::string_view text, const LogLineIdentifier& line,
                         Classification classification);

 private:
  void logBacktrace(const Ref<LogLineIdentifier>& line,
                    const std::vector<std::uintptr_t>& addresses);
  void logRows(const Ref<LogLineIdentifier>& header, std::span<const std::uint8_t> bytes,
               std::size_t offset);

  const Ref<DateFormatter> dateFormatter_;
  BacktraceCache backtraces_;

  mutable SpinLock lock_;
  std::optional<Date> reopenDate_ GUARDED_BY(lock_);
  Ref<ExceptionState> lastException_ GUARDED_BY(lock_);
};

// Logs, for debugging, from where it was called.
void LogStackTrace(std::string_view label);

}  // namespace hoist
