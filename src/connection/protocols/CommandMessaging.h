// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "connection/protocols/KLComponentServing.h"
#include "platform/FileDescriptor.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"
#include "values/Value.h"

namespace hoist {

// What every command of the helper tool answers.
class CommandMessaging : public virtual KLComponentServing {
 public:
  // querySupportsProperty:withReply:
  virtual void querySupportsProperty(std::string property, xpc::Reply<bool> reply) = 0;
  virtual void queryNameWithReply(xpc::Reply<std::string> reply) = 0;
  virtual void queryHumanReadableNameWithReply(xpc::Reply<std::string> reply) = 0;
  virtual void setActionUUID(std::optional<std::string> uuid) = 0;
  virtual void queryActionUUIDWithReply(xpc::Reply<std::optional<std::string>> reply) = 0;
  virtual void setCustomDescription(std::optional<std::string> description) = 0;
  virtual void queryCustomDescriptionWithReply(xpc::Reply<std::optional<std::string>> reply) = 0;
  virtual void queryDisplayDescriptionWithReply(xpc::Reply<std::optional<std::string>> reply) = 0;
  // In decimal.
  virtual void queryProcessIdentifierWithReply(xpc::Reply<std::string> reply) = 0;
  virtual void setPrologScriptPath(std::optional<std::string> path) = 0;
  virtual void setEpilogScriptPath(std::optional<std::string> path) = 0;
  virtual void setScriptsNeedUI(bool need) = 0;
  virtual void addListenerToPublishedService(std::string serviceName) = 0;
  virtual void removeListenerWithIdentifier(std::string identifier) = 0;
  virtual void setMonitorAutoconnect(bool autoconnect) = 0;
  virtual void queryRunStateWithReply(xpc::Reply<bool, bool, bool> reply) = 0;
  virtual void queryIsRunningWithReply(xpc::Reply<bool> reply) = 0;
  virtual void queryIsFinishedWithReply(xpc::Reply<bool> reply) = 0;
  virtual void queryIsHeldWithReply(xpc::Reply<bool> reply) = 0;
  virtual void holdWithReason(std::optional<std::string> reason) = 0;
  virtual void releaseHold() = 0;
  virtual void run() = 0;
  // Answers when the command has ended: its exception in the transport form, nil if there was none.
  virtual void runWithReply(xpc::Reply<std::optional<Data>> reply) = 0;
  virtual void queryExecutionExceptionDataWithReply(xpc::Reply<std::optional<Data>> reply) = 0;
  virtual void cancelFrom(std::int32_t source) = 0;
  virtual void queryCanCancelWithReply(xpc::Reply<bool> reply) = 0;
  virtual void pauseFor(double seconds) = 0;
  virtual void resume() = 0;
  virtual void queryIsPausedWithReply(xpc::Reply<bool> reply) = 0;
  virtual void queryCanPauseWithReply(xpc::Reply<bool> reply) = 0;
  virtual void queryIsPrivilegedWithReply(xpc::Reply<bool> reply) = 0;
  virtual void setRootCommandLogRecordClassification(std::int32_t classification) = 0;
  virtual void redirectLogPathToFile(std::optional<FileDescriptor> file) = 0;
  virtual void setPerilousMode(bool perilous) = 0;
};

const xpc::Protocol& commandMessagingProtocol();

}  // namespace hoist
