// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "system/Sandbox.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/SystemCall.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;

const std::string kBin = HOIST_BUILD_DIR "/bin";

void mountAt(const char* type, const std::string& target, const std::string& options) {
  systemCall(
      "mount", [&] { return ::mount(type, target.c_str(), type, 0, options.c_str()); }, target);
}

// What the folder holds now stays visible below; what is written goes to memory and away with the
// namespace.
void makePrivate(const std::string& folder, const std::string& memory) {
  std::string name = folder.substr(1);
  for (char& c : name) c = c == '/' ? '-' : c;
  std::string upper = memory + "/" + name + ".upper", working = memory + "/" + name + ".work";
  fs::create_directory(upper);
  fs::create_directory(working);
  mountAt("overlay", folder, "lowerdir=" + folder + ",upperdir=" + upper + ",workdir=" + working);
}

void require(const ProgramResult& result, const std::string& what) {
  if (result.status != 0) throw std::runtime_error(what + ": " + result.output);
}

}  // namespace

Sandbox& Sandbox::shared() {
  static auto& sandbox = *new Sandbox;
  // The folder goes with the process; the mounts go with the namespace.
  static bool registered =
      std::atexit([] {
        ::umount2((Sandbox::shared().folder() + "/memory").c_str(), MNT_DETACH);
        std::error_code ignored;
        fs::remove_all(Sandbox::shared().folder(), ignored);
      }) == 0;
  (void)registered;
  return sandbox;
}

Sandbox::Sandbox() {
  systemCall("unshare", [] { return ::unshare(CLONE_NEWNS); });
  systemCall("mount", [] { return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr); });
  ::chmod(folder().c_str(), 0755);
  std::string memory = folder() + "/memory";
  fs::create_directory(memory);
  mountAt("tmpfs", memory, "mode=755");
  makePrivate("/etc", memory);
  makePrivate("/var/lib", memory);
  mountAt("tmpfs", "/run", "mode=755");
  fs::create_directories("/etc/kelvo/trust.d");
  setRunsInBackground(false);
  require(runProgram(HOIST_SOURCE_DIR "/examples/signing/make-identity", {folder() + "/identity"}),
          "make-identity");
  fs::copy_file(folder() + "/identity/trust/anchor.pem", "/etc/kelvo/trust.d/anchor.pem");
}

void Sandbox::setRunsInBackground(bool background) {
  fs::create_directories("/etc/xdg");
  std::ofstream("/etc/xdg/com.kelvo.helper.plist")
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
         "<key>KLRunActionsAsBackgroundProcess</key>"
      << (background ? "<true/>" : "<false/>") << "</dict></plist>\n";
}

std::string Sandbox::makeHelper(const std::string& name, const std::string& program,
                                unsigned user) {
  std::string bundle = folder() + "/" + name + "/KelvoHelper.app";
  std::string executable = bundle + "/Contents/Linux/KelvoHelper";
  fs::create_directories(bundle + "/Contents/Linux");
  fs::copy_file(HOIST_SOURCE_DIR "/examples/helper/Info.plist", bundle + "/Contents/Info.plist");
  fs::copy_file(program, executable);
  sign(executable);
  install(executable, user);
  return executable;
}

void Sandbox::sign(const std::string& executable) {
  std::string bundle = fs::path(executable).parent_path().parent_path().parent_path();
  install(executable, 0);
  require(runProgram(kBin + "/codesign", {"--sign", "--key", folder() + "/identity/signer.key",
                                          "--cert", folder() + "/identity/signer.pem", bundle}),
          "codesign");
}

void Sandbox::install(const std::string& executable, unsigned user) {
  systemCall(
      "chown", [&] { return ::chown(executable.c_str(), user, user); }, executable);
  // Changing the owner takes the bit away.
  systemCall(
      "chmod", [&] { return ::chmod(executable.c_str(), 04755); }, executable);
}

}  // namespace hoist
