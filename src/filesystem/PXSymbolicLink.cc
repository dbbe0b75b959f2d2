// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXSymbolicLink.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstring>

#include "exceptions/KLException.h"
#include "filesystem/PXPath.h"
#include "logging/Logger.h"
#include "platform/FilePaths.h"

namespace hoist {
namespace {

// The longest target of the original platform with its NUL. Linux's reach 4095.
constexpr std::size_t kLongestContents = 1025;

std::unique_ptr<char[]> textOf(const char* bytes, std::size_t length) {
  auto text = std::make_unique<char[]>(length + 1);
  std::memcpy(text.get(), bytes, length);
  return text;
}

}  // namespace

const char* PXSymbolicLink::contents() const {
  SpinLockHolder lock(contentsLock_);
  if (contents_) return contents_.get();
  char buffer[kLongestContents + 1];
  auto length = ::readlink(cPath(), buffer, sizeof buffer);
  if (length < 0) {
    KLException::ioErrnoWithReason("cannot read content of symbolic link")
        .setFileInfo(*this)
        .raise();
  }
  auto kept = std::min(static_cast<std::size_t>(length), kLongestContents);
  if (kept < static_cast<std::size_t>(length)) {
    Logger::log(classification::Caution, [&] {
      return fmt::format("Target of link {} is cut at {} bytes", path(), kLongestContents);
    });
  }
  contents_ = textOf(buffer, kept);
  return contents_.get();
}

void PXSymbolicLink::setContents(const char* target) {
  // The target may be the very text that is kept here.
  auto text = textOf(target, std::strlen(target));
  SpinLockHolder lock(contentsLock_);
  contents_.reset();
  // Asking for a byte of it tells a link from whatever may have taken its place.
  char byte;
  if (::readlink(cPath(), &byte, sizeof byte) < 0 || ::unlink(cPath()) != 0) {
    KLException::error(Error::posix(errno, path()), "IO", "cannot delete item")
        .setPathObject(*pathObject())
        .raise();
  }
  if (::symlink(text.get(), cPath()) != 0) {
    KLException::ioErrnoWithReason("cannot write content of symbolic link")
        .setFileInfo(*this)
        .raise();
  }
  contents_ = std::move(text);
  adoptItem();
}

std::uint64_t PXSymbolicLink::dataLength() const {
  return std::strlen(contents());
}

Ref<PXVolumeInfo> PXSymbolicLink::volumeInfo() const {
  // A link that has lost its parent is still in the folder that its path names.
  auto parent = pathObject()->parent();
  return (parent ? parent : PXPath::initWithCPath(directoryName(cPath())))->volumeInfo();
}

}  // namespace hoist
