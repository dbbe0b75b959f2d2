// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/Digest.h"
#include "platform/FileDescriptor.h"
#include "platform/FileReading.h"

namespace hoist::codesign {

// Is told of everything inside a bundle, the seal and the signature excepted. Paths are relative to
// the bundle. What it throws ends the walk.
class BundleVisitor {
 public:
  virtual ~BundleVisitor() = default;
  virtual void visitFolder(const std::string& path, unsigned mode) = 0;
  virtual void visitLink(const std::string& path, const std::string& target) = 0;
  // A regular file, open for reading for the length of the call.
  virtual void visitFile(const std::string& path, int fd, const struct stat& status) = 0;
};

// Opens a bundle's folder. A link in its place is refused. Throws Problem.
FileDescriptor openBundle(std::string path);

// Goes through the bundle, each folder before its content, names in the order of their bytes. No
// link is followed, no mount entered. Throws Problem for what is neither file, folder nor link, for
// what cannot be read, beyond the limits, and for a folder whose entries change meanwhile.
void walkBundle(int bundle, BundleVisitor& visitor);

// The digest of a file with that status. Throws Problem, naming the path, when it is changed while
// it is read. Each piece is handed on too.
platform::SHA256Digest digestUnchanged(const std::string& path, int fd, const struct stat& status,
                                       const platform::ChunkUse& alsoUse);

// A small file of the bundle as a whole. Throws Problem, naming the path, as well when it is larger
// than the maximum number of bytes.
std::string readBundleFile(int bundle, std::string_view path, std::uint64_t maximumBytes);

}  // namespace hoist::codesign
