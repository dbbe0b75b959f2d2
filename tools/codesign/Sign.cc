// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "codesign/Codesign.h"
#include "codesign/Limits.h"
#include "codesign/Problem.h"
#include "codesign/SealingVisitor.h"
#include "platform/SystemCall.h"

namespace hoist::codesign {
namespace {

constexpr unsigned kFolderMode = 0755;
constexpr unsigned kFileMode = 0644;

// The names inside the seal's folder.
std::string nameOf(std::string_view path) {
  return std::string(path.substr(kSealFolder.size() + 1));
}
std::string temporaryNameOf(std::string_view path) {
  return nameOf(path) + ".new";
}

FileDescriptor existingSealFolder(int bundle) {
  return platform::openBeneath(bundle, std::string(kSealFolder),
                               O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
}

// A signing that was killed may have left them; they are sealed by nobody.
void removeLeftovers(int bundle) {
  FileDescriptor folder;
  try {
    folder = existingSealFolder(bundle);
  } catch (const SystemCallError&) {
    return;  // there is none yet, or something else that the walk will refuse
  }
  for (const auto path : {kSealPath, kSignaturePath}) {
    unlinkat(folder.get(), temporaryNameOf(path).c_str(), 0);
  }
}

Seal sealOf(int bundle) {
  SealMaker maker;
  walkBundle(bundle, maker);
  Seal seal = maker.seal();
  mainExecutable(seal, maker.infoPlist());
  seal.folders.try_emplace(std::string(kSealFolder), kFolderMode);
  return seal;
}

FileDescriptor openSealFolder(int bundle) {
  const std::string path(kSealFolder);
  const bool made = mkdirat(bundle, path.c_str(), kFolderMode) == 0;
  auto folder = existingSealFolder(bundle);
  // Exactly the mode that was sealed, whatever the umask.
  if (made) systemCall("fchmod", [&] { return fchmod(folder.get(), kFolderMode); });
  return folder;
}

void writeNew(int folder, const std::string& name, std::string_view bytes) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor file(
      systemCall("openat", [&] { return openat(folder, name.c_str(), kFlags, kFileMode); }));
  systemCall("fchmod", [&] { return fchmod(file.get(), kFileMode); });
  while (!bytes.empty()) {
    bytes.remove_prefix(static_cast<std::size_t>(
        systemCall("write", [&] { return write(file.get(), bytes.data(), bytes.size()); })));
  }
  systemCall("fsync", [&] { return fsync(file.get()); });
}

void putInPlace(int folder, std::string_view path) {
  const auto from = temporaryNameOf(path);
  const auto to = nameOf(path);
  systemCall("renameat", [&] { return renameat(folder, from.c_str(), folder, to.c_str()); });
}

// Both are whole on the disk before either gets its name.
void store(int bundle, std::string_view seal, std::string_view signature) {
  const auto folder = openSealFolder(bundle);
  writeNew(folder.get(), temporaryNameOf(kSealPath), seal);
  writeNew(folder.get(), temporaryNameOf(kSignaturePath), signature);
  putInPlace(folder.get(), kSealPath);
  putInPlace(folder.get(), kSignaturePath);
  systemCall("fsync", [&] { return fsync(folder.get()); });
}

}  // namespace

void signBundle(const std::string& path, const Identity& identity) {
  const auto bundle = openBundle(path);
  removeLeftovers(bundle.get());
  const auto seal = textOfSeal(sealOf(bundle.get()));
  if (seal.size() > kMaximumSealBytes) throw Problem(kSealPath, "would be too large");
  const auto signature = makeSignature(seal, identity);
  if (signature.size() > kMaximumSignatureBytes)
    throw Problem(kSignaturePath, "would be too large");
  try {
    store(bundle.get(), seal, signature);
  } catch (const SystemCallError& error) {
    removeLeftovers(bundle.get());
    throw Problem(kSealFolder, errorText(error.number()));
  }
}

}  // namespace hoist::codesign
