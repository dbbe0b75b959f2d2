// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The user owns the helper and can change it at any moment, also between check and start. So what
// was checked is copied into sealed memory first, the signature is asked about exactly those bytes
// (the tool says which digest it found sealed), and those bytes are what is started. Later requests
// only compare the file on disk with the kept copy: while it is unchanged, the copy is what runs. A
// file has the kept digest when it has the kept bytes; comparing them is quicker than digesting it.

#include "daemon/CodeSignVerifier.h"

#include <unistd.h>

#include <array>

#include "platform/Bundle.h"
#include "platform/ChildTask.h"
#include "platform/FileReading.h"
#include "platform/SystemCall.h"
#include "platform/Trouble.h"

namespace hoist {
namespace {

// The largest helper that is copied into memory. Picked: a hundred times the product's own.
constexpr std::uint64_t kMaximumExecutableBytes = 512ull * 1024 * 1024;
// The tool prints one line of 64 digits; more is not read.
constexpr std::size_t kMaximumToolOutput = 4096;

std::string folderOf(const std::string& path) {
  std::size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return path.empty() ? "" : "/";
  std::size_t slash = path.rfind('/', end);
  if (slash == std::string::npos) return "";
  std::size_t last = path.find_last_not_of('/', slash);
  return last == std::string::npos ? "/" : path.substr(0, last + 1);
}

// A folder called just ".app" has no extension.
bool isApplicationFolder(const std::string& path) {
  static constexpr std::string_view kExtension = ".app";
  std::string name = path.substr(path.rfind('/') + 1);
  return name.size() > kExtension.size() && name.ends_with(kExtension);
}

std::shared_ptr<const FileDescriptor> openExecutable(const std::optional<std::string>& path) {
  if (!path) return nullptr;
  try {
    return std::make_shared<const FileDescriptor>(platform::openRegularFile(*path));
  } catch (const SystemCallError&) {
    return nullptr;
  }
}

std::optional<Data> digestOf(const FileDescriptor& file) {
  try {
    return Data(platform::sha1OfFile(file.get(), kMaximumExecutableBytes));
  } catch (const SystemCallError&) {
    return std::nullopt;
  }
}

bool holdsBytesOf(const FileDescriptor& file, const platform::SealedFile& copy) {
  try {
    return copy.isCopyOf(file.get());
  } catch (const SystemCallError&) {
    return false;
  }
}

std::shared_ptr<const platform::SealedFile> copyOf(const FileDescriptor& file) {
  try {
    return std::make_shared<const platform::SealedFile>(
        platform::SealedFile::copyOf(file.get(), kMaximumExecutableBytes, "helper"));
  } catch (const SystemCallError& error) {
    platform::reportTrouble(platform::Severity::Warning,
                            std::string("cannot copy a helper: ") + error.what());
    return nullptr;
  }
}

// Runs the tool to its end; its first line of output if it ended with status 0.
std::optional<std::string> runTool(const std::string& tool, const std::string& path) {
  PipeEnds output = makePipe();
  auto task = ChildTask::launch({.launchPath = tool,
                                 .arguments = {"--verify", path},
                                 .environment = {{}},
                                 .standardOutput = output.writing.get()});
  output.writing.reset();
  std::string text;
  std::array<char, 512> buffer;
  while (true) {
    ssize_t got = retryInterrupted(
        [&] { return ::read(output.reading.get(), buffer.data(), buffer.size()); });
    if (got <= 0) break;
    if (text.size() < kMaximumToolOutput) text.append(buffer.data(), static_cast<std::size_t>(got));
  }
  task->waitUntilExit();
  if (task->terminationStatus() != 0) return std::nullopt;
  return text.substr(0, text.find('\n'));
}

}  // namespace

bool CodeSignVerifier::valid() {
  executable_.reset();
  if (verifyDigest()) return true;
  auto file = openExecutable(digestPath());
  auto bytes = file ? copyOf(*file) : nullptr;
  if (!bytes || !verifySignature(bytes->sha256())) return false;
  digest_ = Data(bytes->sha1());
  bytes_ = bytes;
  executable_ = VerifiedExecutable{file, bytes};
  return true;
}

bool CodeSignVerifier::verifySignature(const platform::SHA256Digest& executable) const {
  try {
    auto sealed = runTool(tool_, codeSignPath());
    if (!sealed) return false;
    if (*sealed == platform::hexadecimal(executable)) return true;
    platform::reportTrouble(
        platform::Severity::Warning,
        "the executable changed while its signature was verified: " + codeSignPath());
  } catch (const SystemCallError& error) {
    platform::reportTrouble(platform::Severity::Failure,
                            std::string("cannot run the code-signing tool: ") + error.what());
  }
  return false;
}

std::optional<Data> CodeSignVerifier::generateDigest() const {
  auto file = openExecutable(digestPath());
  return file ? digestOf(*file) : std::nullopt;
}

bool CodeSignVerifier::verifyDigest() {
  if (!digest_) return false;
  auto file = openExecutable(digestPath());
  if (!file || !holdsBytesOf(*file, *bytes_)) return false;
  executable_ = VerifiedExecutable{file, bytes_};
  return true;
}

BundleExecutableVerifier::BundleExecutableVerifier(std::string tool, std::string bundlePath)
    : CodeSignVerifier(std::move(tool)),
      bundlePath_(std::move(bundlePath)),
      executablePath_([this] {
        auto bundle = platform::Bundle::bundleWithPath(bundlePath_);
        return bundle ? bundle->executablePath() : std::nullopt;
      }()) {}

std::string enclosingBundlePath(const std::string& executablePath) {
  std::string folder = folderOf(executablePath);
  while (!isApplicationFolder(folder)) {
    std::string above = folderOf(folder);
    if (above == folder) break;
    folder = std::move(above);
  }
  return folder;
}

std::optional<VerifiedExecutable> HelperVerifier::verifyHelperAtPath(const std::string& path) {
  MutexLock lock(mutex_);
  if (!verifier_ || verifier_->digestPath() != path) {
    verifier_ = make<BundleExecutableVerifier>(tool_, enclosingBundlePath(path));
    if (verifier_->digestPath() != path) verifier_ = nullptr;
  }
  if (!verifier_ || !verifier_->valid()) return std::nullopt;
  return verifier_->executable();
}

}  // namespace hoist
