// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

namespace hoist {

// Real file systems for one test, in a mount namespace of the test process: nothing outside sees
// them and nothing of them stays. For root, and to be made before the test starts any thread.
class TestVolumes {
 public:
  static bool possible() { return ::geteuid() == 0; }

  TestVolumes() {
    static const bool apart = ::unshare(CLONE_NEWNS) == 0 &&
                              ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!apart) throw std::runtime_error("no mount namespace of its own");
  }
  ~TestVolumes() {
    for (auto point = mountPoints_.rbegin(); point != mountPoints_.rend(); ++point) {
      ::umount2(point->c_str(), MNT_DETACH);
    }
    for (auto child : children_) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
    }
  }
  TestVolumes(const TestVolumes&) = delete;
  TestVolumes& operator=(const TestVolumes&) = delete;

  const TemporaryFolder& folder() const { return folder_; }

  // Kinds that this kernel and this machine's programs can make.
  static std::vector<std::string> kinds() {
    return {"ext4", "xfs", "btrfs", "tmpfs", "overlay", "fuse"};
  }

  // Why there can be none of a kind here; nothing when there can. Those of the FAT family are
  // modules that a kernel need not have; a FUSE program can stand in for one of them.
  static std::optional<std::string> reasonAgainst(const std::string& kind) {
    auto type = byProgram(kind) ? "fuseblk" : kind;
    std::ifstream types("/proc/filesystems");
    for (std::string word; types >> word;) {
      if (word == type) return std::nullopt;
    }
    return "this kernel has no " + type;
  }

  // A new file system of a kind, mounted under a name in the folder; answers where.
  std::string make(const std::string& kind, const std::string& name, int mebibytes = 0) {
    auto point = newPoint(name);
    if (kind == "tmpfs") {
      auto size = mebibytes == 0 ? 64 : mebibytes;
      mount("tmpfs", point, "tmpfs", 0, "size=" + std::to_string(size) + "m");
    } else if (kind == "overlay") {
      makeOverlay(point, name);
    } else if (kind == "fuse") {
      makeFUSE(point, name, {"-o", "dev,suid"});
    } else if (kind.starts_with("fuse.")) {
      // The same program under another type.
      makeFUSE(point, name, {"-o", "dev,suid,subtype=" + kind.substr(5)});
    } else if (auto program = byProgram(kind)) {
      mountByProgram(*program, makeImage(kind, name, mebibytes), point);
    } else {
      mountImage(makeImage(kind, name, mebibytes), point);
    }
    ::chmod(point.c_str(), 0755);
    return point;
  }

  // A FUSE file system that anybody may write to and that shows every item as root's.
  std::string makeRootsOwn(const std::string& name) {
    auto point = newPoint(name);
    makeFUSE(point, name,
             {"--force-user=root", "--perms=a+rwX", "-o", "allow_other,default_permissions"});
    return point;
  }

  // An image file with an empty file system; labelled with the name in capitals.
  std::string makeImage(const std::string& kind, const std::string& name, int mebibytes = 0) {
    auto image = folder_ / (name + ".img");
    if (mebibytes == 0) mebibytes = kind == "xfs" ? 320 : 128;
    run("truncate -s " + std::to_string(mebibytes) + "M " + image);
    std::string label;
    for (char c : name) label += static_cast<char>(std::toupper(c));
    bool isFAT = kind == "vfat" || kind == "exfat";
    run("mkfs." + kind +
        (kind == "ext4"   ? " -q -E lazy_itable_init=1"
         : kind == "ntfs" ? " --quick --force"
         : isFAT          ? ""
                          : " -q") +
        (kind == "vfat" ? " -n " : " -L ") + label + " " + image);
    return image;
  }
  std::string mountImage(const std::string& image, const std::string& point,
                         const std::string& options = "loop") {
    run("mount -o " + options + " " + image + " " + point);
    mountPoints_.push_back(point);
    return point;
  }
  std::string newPoint(const std::string& name) {
    auto point = folder_ / name;
    ::mkdir(point.c_str(), 0755);
    return point;
  }
  // The program wants a block device and ends when it is unmounted; the kernel frees the device
  // then.
  void mountByProgram(const std::string& program, const std::string& image,
                      const std::string& point) {
    run("device=$(losetup --find --show " + image + ") && " + program + " $device " + point +
        "; result=$?; losetup --detach $device; exit $result");
    mountPoints_.push_back(point);
  }
  // The folder or file once more at another place.
  std::string bind(const std::string& source, const std::string& name, unsigned long flags = 0) {
    struct stat status;
    if (::stat(source.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
      folder_.write(name, "");
    } else {
      newPoint(name);
    }
    auto point = folder_ / name;
    mount(source, point, "", MS_BIND, "");
    if (flags != 0) {
      if (::mount(nullptr, point.c_str(), nullptr, MS_REMOUNT | MS_BIND | flags, nullptr) != 0)
        throw std::runtime_error("cannot remount " + point);
    }
    return point;
  }
  void mount(const std::string& source, const std::string& point, const std::string& type,
             unsigned long flags, const std::string& options) {
    if (::mount(source.c_str(), point.c_str(), type.empty() ? nullptr : type.c_str(), flags,
                options.c_str()) != 0)
      throw std::runtime_error("cannot mount " + point);
    mountPoints_.push_back(point);
  }
  // As "umount -l" does it.
  void detach(const std::string& point) { ::umount2(point.c_str(), MNT_DETACH); }

  static void run(const std::string& command) {
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0)
      throw std::runtime_error("failed: " + command);
  }

 private:
  void makeOverlay(const std::string& point, const std::string& name) {
    // The layers stand in a memory file system: an overlay cannot be the layer of an overlay.
    auto layers = newPoint(name + ".layers");
    mount("tmpfs", layers, "tmpfs", 0, "size=64m");
    for (auto layer : {"/lower", "/upper", "/work"}) ::mkdir((layers + layer).c_str(), 0755);
    mount(
        "overlay", point, "overlay", 0,
        "lowerdir=" + layers + "/lower,upperdir=" + layers + "/upper,workdir=" + layers + "/work");
  }

  void makeFUSE(const std::string& point, const std::string& name,
                const std::vector<std::string>& options) {
    auto source = newPoint(name + ".source");
    std::vector<const char*> command = {"bindfs", "-f"};
    for (auto& option : options) command.push_back(option.c_str());
    command.insert(command.end(), {source.c_str(), point.c_str(), nullptr});
    pid_t child = ::fork();
    if (child == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::execvp("bindfs", const_cast<char**>(command.data()));
      ::_exit(127);
    }
    children_.push_back(child);
    constexpr long kFUSE = 0x65735546;
    struct statfs status;
    while (::statfs(point.c_str(), &status) == 0 && status.f_type != kFUSE) {
      if (::waitpid(child, nullptr, WNOHANG) == child) throw std::runtime_error("bindfs ended");
      ::usleep(1000);
    }
    mountPoints_.push_back(point);
  }

  // The FUSE program that mounts a kind from a device; nothing when the kernel does.
  static std::optional<std::string> byProgram(const std::string& kind) {
    if (kind == "ntfs") return "/usr/sbin/mount.ntfs-3g";
    std::string exFAT = "/usr/sbin/mount.exfat-fuse";
    if (kind == "exfat" && std::filesystem::exists(exFAT)) return exFAT;
    return std::nullopt;
  }

  TemporaryFolder folder_;
  std::vector<std::string> mountPoints_;
  std::vector<pid_t> children_;
};

}  // namespace hoist
