// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/CommandMessaging.h"

namespace hoist {

const xpc::Protocol& commandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("CommandMessaging")
          .adopts(klComponentServingProtocol())
          .method<&CommandMessaging::querySupportsProperty>(
              "querySupportsProperty:withReply:", {"property"}, {"supported"})
          .method<&CommandMessaging::queryNameWithReply>("queryNameWithReply:", {}, {"name"})
          .method<&CommandMessaging::queryHumanReadableNameWithReply>(
              "queryHumanReadableNameWithReply:", {}, {"name"})
          .method<&CommandMessaging::setActionUUID>("setActionUUID:", {"uuid"})
          .method<&CommandMessaging::queryActionUUIDWithReply>("queryActionUUIDWithReply:", {},
                                                               {"uuid"})
          .method<&CommandMessaging::setCustomDescription>("setCustomDescription:", {"description"})
          .method<&CommandMessaging::queryCustomDescriptionWithReply>(
              "queryCustomDescriptionWithReply:", {}, {"description"})
          .method<&CommandMessaging::queryDisplayDescriptionWithReply>(
              "queryDisplayDescriptionWithReply:", {}, {"description"})
          .method<&CommandMessaging::queryProcessIdentifierWithReply>(
              "queryProcessIdentifierWithReply:", {}, {"identifier"})
          .method<&CommandMessaging::setPrologScriptPath>("setPrologScriptPath:", {"path"})
          .method<&CommandMessaging::setEpilogScriptPath>("setEpilogScriptPath:", {"path"})
          .method<&CommandMessaging::setScriptsNeedUI>("setScriptsNeedUI:", {"need"})
          .method<&CommandMessaging::addListenerToPublishedService>(
              "addListenerToPublishedService:", {"serviceName"})
          .method<&CommandMessaging::removeListenerWithIdentifier>("removeListenerWithIdentifier:",
                                                                   {"identifier"})
          .method<&CommandMessaging::setMonitorAutoconnect>("setMonitorAutoconnect:",
                                                            {"autoconnect"})
          .method<&CommandMessaging::queryRunStateWithReply>("queryRunStateWithReply:", {},
                                                             {"running", "finished", "held"})
          .method<&CommandMessaging::queryIsRunningWithReply>("queryIsRunningWithReply:", {},
                                                              {"running"})
          .method<&CommandMessaging::queryIsFinishedWithReply>("queryIsFinishedWithReply:", {},
                                                               {"finished"})
          .method<&CommandMessaging::queryIsHeldWithReply>("queryIsHeldWithReply:", {}, {"held"})
          .method<&CommandMessaging::holdWithReason>("holdWithReason:", {"reason"})
          .method<&CommandMessaging::releaseHold>("releaseHold")
          .method<&CommandMessaging::run>("run")
          .method<&CommandMessaging::runWithReply>("runWithReply:", {}, {"exceptionData"})
          .method<&CommandMessaging::queryExecutionExceptionDataWithReply>(
              "queryExecutionExceptionDataWithReply:", {}, {"exceptionData"})
          .method<&CommandMessaging::cancelFrom>("cancelFrom:", {"source"})
          .method<&CommandMessaging::queryCanCancelWithReply>("queryCanCancelWithReply:", {},
                                                              {"canCancel"})
          .method<&CommandMessaging::pauseFor>("pauseFor:", {"seconds"})
          .method<&CommandMessaging::resume>("resume")
          .method<&CommandMessaging::queryIsPausedWithReply>("queryIsPausedWithReply:", {},
                                                             {"paused"})
          .method<&CommandMessaging::queryCanPauseWithReply>("queryCanPauseWithReply:", {},
                                                             {"canPause"})
          .method<&CommandMessaging::queryIsPrivilegedWithReply>("queryIsPrivilegedWithReply:", {},
                                                                 {"privileged"})
          .method<&CommandMessaging::setRootCommandLogRecordClassification>(
              "setRootCommandLogRecordClassification:", {"classification"})
          .method<&CommandMessaging::redirectLogPathToFile>("redirectLogPathToFile:", {"file"})
          .method<&CommandMessaging::setPerilousMode>("setPerilousMode:", {"perilous"}));
  return protocol;
}

}  // namespace hoist
