// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "codesign/BundleWalk.h"
#include "codesign/Seal.h"

namespace hoist::codesign {

// The part of a walk that signing and verifying have in common: the digest of each file, and the
// bytes of Info.plist kept from the same reading, so that what is asked of it later is asked of the
// bytes that were digested.
class SealingVisitor : public BundleVisitor {
 public:
  const std::vector<std::uint8_t>& infoPlist() const { return infoPlist_; }

 protected:
  SealedFile sealFile(const std::string& path, int fd, const struct stat& status);

 private:
  std::vector<std::uint8_t> infoPlist_;
};

// Makes the seal of what it visits.
class SealMaker : public SealingVisitor {
 public:
  const Seal& seal() const { return seal_; }

  void visitFolder(const std::string& path, unsigned mode) override;
  void visitLink(const std::string& path, const std::string& target) override;
  void visitFile(const std::string& path, int fd, const struct stat& status) override;

 private:
  Seal seal_;
};

// Compares what it visits with a seal and throws Problem at the first difference; no byte of a file
// that the seal does not know with that size and mode is read.
class SealChecker : public SealingVisitor {
 public:
  explicit SealChecker(const Seal& seal) : missing_(seal) {}

  void visitFolder(const std::string& path, unsigned mode) override;
  void visitLink(const std::string& path, const std::string& target) override;
  void visitFile(const std::string& path, int fd, const struct stat& status) override;

  // After the walk: throws Problem if something sealed was not visited.
  void requireNothingMissing() const;

 private:
  // Sealed and not visited so far.
  Seal missing_;
};

// The path of the bundle's main executable by its Info.plist, among the files of the seal. Throws
// Problem if there is none.
const std::string& mainExecutable(const Seal& seal, const std::vector<std::uint8_t>& infoPlist);

}  // namespace hoist::codesign
