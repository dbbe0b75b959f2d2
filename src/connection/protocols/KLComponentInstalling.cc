// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/KLComponentInstalling.h"

namespace hoist {

const xpc::Protocol& klComponentInstallingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("KLComponentInstalling")
          .method<&KLComponentInstalling::queryComponentVersionWithReply>(
              "queryComponentVersionWithReply:", {}, {"version"})
          .method<&KLComponentInstalling::queryBuildNumberWithReply>(
              "queryBuildNumberWithReply:", {}, {"buildNumber"})
          .optionalMethod<&KLComponentInstalling::didInstallComponent>("didInstallComponent")
          .optionalMethod<&KLComponentInstalling::willUninstallComponent>(
              "willUninstallComponent"));
  return protocol;
}

}  // namespace hoist
