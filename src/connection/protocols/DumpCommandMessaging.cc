// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/DumpCommandMessaging.h"

namespace hoist {

const xpc::Protocol& dumpCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("DumpCommandMessaging")
          .adopts(repositoryCommandMessagingProtocol())
          .method<&DumpCommandMessaging::setSubcommand>("setSubcommand:", {"subcommand"})
          .method<&DumpCommandMessaging::setDumpFlags>("setDumpFlags:inSet:", {"flags", "set"})
          .method<&DumpCommandMessaging::clearDumpFlags>("clearDumpFlags:inSet:", {"flags", "set"})
          .method<&DumpCommandMessaging::listNodeIdentifiedBy>(
              "listNodeIdentifiedBy:", {{"node", "FullyQualifiedIdentifier"}})
          .method<&DumpCommandMessaging::setIncludeDeleted>("setIncludeDeleted:", {"include"})
          .method<&DumpCommandMessaging::setColumnFormat>("setColumnFormat:", {"columns"})
          .method<&DumpCommandMessaging::setDateStyle>("setDateStyle:timeStyle:",
                                                       {"dateStyle", "timeStyle"})
          .method<&DumpCommandMessaging::setSizeStyle>("setSizeStyle:", {"style"})
          .method<&DumpCommandMessaging::setOutputFile>("setOutputFile:", {"path"})
          .method<&DumpCommandMessaging::setOutputFileHandle>("setOutputFileHandle:", {"file"}));
  return protocol;
}

}  // namespace hoist
