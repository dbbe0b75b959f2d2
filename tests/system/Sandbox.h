// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

namespace hoist {

// A machine of the test's own, as far as the hoist can see: a mount namespace in which /run, /etc
// and /var/lib are private, with a signing identity and its trust anchor. Made once in a process;
// needs root.
class Sandbox {
 public:
  static Sandbox& shared();

  // Where tests put bundles and programs; every user can read it.
  const std::string& folder() const { return folder_.path(); }

  // An application bundle with the program as its signed main executable, owned by the user and
  // set-user-ID. Answers the executable's path.
  std::string makeHelper(const std::string& name, const std::string& program, unsigned user);
  // Signs the bundle of the executable again.
  void sign(const std::string& executable);
  // The preference that moves helpers to the background. Off at first: on a busy machine an
  // idle-class helper may not run for seconds.
  static void setRunsInBackground(bool background);
  // Owner and mode as an installer sets them.
  static void install(const std::string& executable, unsigned user);

 private:
  Sandbox();

  TemporaryFolder folder_;
};

}  // namespace hoist
