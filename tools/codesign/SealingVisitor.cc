// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/SealingVisitor.h"

#include <fmt/format.h>

#include "codesign/Problem.h"
#include "platform/InfoPlist.h"

namespace hoist::codesign {
namespace {

template <class Table>
auto take(Table& table, const std::string& path, std::string_view kind) {
  const auto entry = table.extract(path);
  if (entry.empty()) throw Problem(path, fmt::format("is a {} that is not sealed", kind));
  return entry.mapped();
}

void requireMode(const std::string& path, unsigned mode, unsigned sealed) {
  if (mode == sealed) return;
  throw Problem(path, fmt::format("has mode {:04o}, sealed was {:04o}", mode, sealed));
}

template <class Table>
void requireEmpty(const Table& table) {
  if (!table.empty()) throw Problem(table.begin()->first, "is sealed but missing");
}

}  // namespace

SealedFile SealingVisitor::sealFile(const std::string& path, int fd, const struct stat& status) {
  const bool keep = path == platform::kInfoPlistPath;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (keep && size > platform::kMaximumInfoPlistBytes) throw Problem(path, "is too large");
  const auto digest = digestUnchanged(path, fd, status, [&](std::span<const std::uint8_t> chunk) {
    if (keep) infoPlist_.insert(infoPlist_.end(), chunk.begin(), chunk.end());
  });
  return {digest, size, status.st_mode & kSealedModeBits};
}

void SealMaker::visitFolder(const std::string& path, unsigned mode) {
  seal_.folders[path] = mode;
}

void SealMaker::visitLink(const std::string& path, const std::string& target) {
  seal_.links[path] = target;
}

void SealMaker::visitFile(const std::string& path, int fd, const struct stat& status) {
  seal_.files[path] = sealFile(path, fd, status);
}

void SealChecker::visitFolder(const std::string& path, unsigned mode) {
  requireMode(path, mode, take(missing_.folders, path, "folder"));
}

void SealChecker::visitLink(const std::string& path, const std::string& target) {
  if (take(missing_.links, path, "link") != target) {
    throw Problem(path, "is a link that points elsewhere than it was sealed");
  }
}

void SealChecker::visitFile(const std::string& path, int fd, const struct stat& status) {
  const auto sealed = take(missing_.files, path, "file");
  requireMode(path, status.st_mode & kSealedModeBits, sealed.mode);
  if (static_cast<std::uint64_t>(status.st_size) != sealed.size ||
      sealFile(path, fd, status) != sealed) {
    throw Problem(path, "has other content than was sealed");
  }
}

void SealChecker::requireNothingMissing() const {
  requireEmpty(missing_.folders);
  requireEmpty(missing_.files);
  requireEmpty(missing_.links);
}

const std::string& mainExecutable(const Seal& seal, const std::vector<std::uint8_t>& infoPlist) {
  if (!seal.files.contains(std::string(platform::kInfoPlistPath))) {
    throw Problem(platform::kInfoPlistPath, "is missing");
  }
  const auto name = platform::executableNameOfInfoPlist(infoPlist);
  if (!name) throw Problem(platform::kInfoPlistPath, "names no executable");
  for (const auto& candidate : platform::executableCandidates(*name)) {
    const auto file = seal.files.find(candidate);
    if (file != seal.files.end()) return file->first;
  }
  throw Problem(platform::kInfoPlistPath, "names an executable that is not in the bundle");
}

}  // namespace hoist::codesign
