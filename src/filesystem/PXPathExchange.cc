// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <stdlib.h>

#include <cerrno>
#include <string>

#include "exceptions/KLException.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "logging/Logger.h"
#include "platform/FacilityLevel.h"
#include "platform/FilePaths.h"
#include "platform/SystemCall.h"
#include "platform/Utf8.h"
#include "platform/files/ExchangeCalls.h"

// Two items change places: at once where the volume can, else by three renames over a temporary
// name. Whenever the three are interrupted, each item is still there under some name.

namespace hoist {
namespace {

constexpr std::uint32_t kSwapSince = packedVersion(10, 12);
// Of a temporary name, in bytes. Some file systems refuse a name that ends in half a character.
constexpr std::size_t kLongestName = 254;

void logFailure(const char* call, const PXPath& path, const PXPath& other) {
  int error = errno;
  Logger::log(classification::Debug, [&] {
    return fmt::format("-[PXPath swapWith:] {}('{}','{}') failed; errno={} ({})", call, path.path(),
                       other.path(), error, errorText(error));
  });
}

[[noreturn]] void raiseCannotExchange(int error, const PXPath& path, const PXPath& other) {
  errno = error;
  KLException::ioErrnoWithReason("cannot exchange files")
      .setAPI("rename")
      .setPathObject(path)
      .setDetail(Value(other.path()), "with")
      .raise();
}

// What the volume of the folder can do; a volume that cannot be asked can do nothing.
Ref<PXVolumeInfo> volumeOfParent(const PXPath& path) {
  try {
    return PXPath::initWithCPath(directoryName(path.cPath()))->volumeInfo();
  } catch (const Exception&) {
    return nullptr;
  }
}

Ref<PXPath> temporaryNeighbour(const PXPath& path) {
  auto folder = PXPath::initWithCPath(directoryName(path.cPath()));
  for (;;) {
    auto name = fmt::format("_xchng_{:08x}_{}", ::arc4random(), path.cName());
    auto neighbour = PXPath::initWithCNameParentPath(cutUTF8(name, kLongestName), *folder);
    if (!neighbour->exists()) return neighbour;
  }
}

void exchangeByRenames(const PXPath& path, const PXPath& other) {
  auto& calls = files::ExchangeCalls::current();
  auto temporary = temporaryNeighbour(path);
  if (calls.rename(other.cPath(), temporary->cPath()) != 0) {
    raiseCannotExchange(errno, path, other);
  }
  if (calls.rename(path.cPath(), other.cPath()) != 0) {
    int error = errno;
    (void)calls.rename(temporary->cPath(), other.cPath());
    raiseCannotExchange(error, path, other);
  }
  if (calls.rename(temporary->cPath(), path.cPath()) != 0) {
    raiseCannotExchange(errno, path, other);
  }
}

}  // namespace

void PXPath::swapWith(const PXPath& other) const {
  auto& calls = files::ExchangeCalls::current();
  auto volume = volumeOfParent(*this);
  if (facilityLevel() >= kSwapSince && volume && volume->hasSwapping()) {
    if (calls.swap(cPath(), other.cPath()) == 0) return;
    logFailure("renamex_np", *this, other);
  }
  if (volume && volume->hasExchangeData()) {
    if (calls.exchangedata(cPath(), other.cPath()) == 0) return;
    logFailure("exchangedata", *this, other);
  }
  exchangeByRenames(*this, other);
}

}  // namespace hoist
