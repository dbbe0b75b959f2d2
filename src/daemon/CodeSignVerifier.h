// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Mutex.h"
#include "platform/SealedFile.h"
#include "values/Data.h"
#include "values/Object.h"

namespace hoist {

// Bytes of an executable whose signature is valid, and the file that holds them.
struct VerifiedExecutable {
  // The file as it was opened for this very check: what is asked of the file is asked of this
  // descriptor.
  std::shared_ptr<const FileDescriptor> file;
  // The bytes that were verified, which nobody can change any more: what is executed.
  std::shared_ptr<const platform::SealedFile> bytes;
};

// Asks the code-signing tool whether something is validly signed, and remembers the digest of the
// executable, so that the tool runs again only when the file has changed. Not safe to use from
// several threads at once; its owner locks.
class CodeSignVerifier : public Object {
 public:
  // The tool is the program to run as "TOOL --verify PATH".
  explicit CodeSignVerifier(std::string tool) : tool_(std::move(tool)) {}

  // What the signature tool verifies.
  virtual const std::string& codeSignPath() const = 0;
  // The file whose content is hashed.
  virtual std::optional<std::string> digestPath() const = 0;

  // The 20-byte SHA-1 of the executable as it was when its signature last verified; nothing until
  // then.
  const std::optional<Data>& digest() const { return digest_; }

  // Whether the content is unchanged since a successful check or, if not, passes one now.
  bool valid();
  // The executable of the last call of valid() that answered true.
  const std::optional<VerifiedExecutable>& executable() const { return executable_; }

  // Whether the tool finds the path validly signed, and its main executable to hold exactly the
  // given bytes.
  bool verifySignature(const platform::SHA256Digest& executable) const;
  // The SHA-1 of the file as it is now; nothing if it cannot be read.
  std::optional<Data> generateDigest() const;
  // Whether the file still holds the bytes whose digest is kept.
  bool verifyDigest();

 private:
  const std::string tool_;
  std::optional<Data> digest_;
  std::shared_ptr<const platform::SealedFile> bytes_;
  std::optional<VerifiedExecutable> executable_;
};

// Verifies an application bundle and its main executable.
class BundleExecutableVerifier final : public CodeSignVerifier {
 public:
  // Resolves the executable's path once, now.
  BundleExecutableVerifier(std::string tool, std::string bundlePath);

  std::string className() const override { return "BundleExecutableVerifier"; }
  const std::string& bundlePath() const { return bundlePath_; }
  const std::optional<std::string>& executablePath() const { return executablePath_; }
  const std::string& codeSignPath() const override { return bundlePath_; }
  std::optional<std::string> digestPath() const override { return executablePath_; }

 private:
  const std::string bundlePath_;
  const std::optional<std::string> executablePath_;
};

// The nearest folder above the executable whose extension is "app", or the root when there is none.
std::string enclosingBundlePath(const std::string& executablePath);

// The verifier of one user's helper: the last one that was asked for. Safe from any thread;
// requests of one user wait for each other, those of different users do not.
class HelperVerifier {
 public:
  explicit HelperVerifier(std::string tool) : tool_(std::move(tool)) {}

  // The executable, if the path is exactly the main executable of its nearest enclosing, validly
  // signed ".app" folder.
  std::optional<VerifiedExecutable> verifyHelperAtPath(const std::string& path);

 private:
  const std::string tool_;
  Mutex mutex_;
  Ref<BundleExecutableVerifier> verifier_ GUARDED_BY(mutex_);
};

}  // namespace hoist
