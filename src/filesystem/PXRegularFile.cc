// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXRegularFile.h"

#include "exceptions/KLException.h"
#include "filesystem/PXPath.h"

namespace hoist {

using namespace attrlist;

namespace {

constexpr std::uint32_t kFileRequest =
    ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE | ATTR_FILE_DATALENGTH;
static_assert(kFileRequest == 0x207);
constexpr std::uint32_t kFileRequestSize = 28;  // bytes, as the original platform packs it

}  // namespace

Ref<PXRegularFile> PXRegularFile::regularInfoForPathObject(const Ref<PXPath>& path,
                                                           std::optional<std::string_view> reason) {
  auto info = infoForPathObject(path);
  auto file = info ? info->asRegularFile() : nullptr;
  if (!file && reason && info && info->exists()) {
    KLException::exceptionWithName("IO", *reason).setPathObject(*path).raise();
  }
  return file;
}

template <class Field>
Field PXRegularFile::field(Field FileAttributes::*field) const {
  SpinLockHolder lock(attrLock_);
  return readRecord() ? fileRecord_.*field : Field{};
}

std::uint64_t PXRegularFile::logicalSize() const {
  return field(&FileAttributes::totalSize);
}

std::uint64_t PXRegularFile::physicalSize() const {
  return field(&FileAttributes::allocatedSize);
}

std::uint64_t PXRegularFile::dataLength() const {
  return field(&FileAttributes::dataLength);
}

std::uint32_t PXRegularFile::linkCount() const {
  return field(&FileAttributes::linkCount);
}

std::uint32_t PXRegularFile::prepareAttrRequest(AttributeSet& request) const {
  auto size = PXFileInfo::prepareAttrRequest(request);
  request.file = kFileRequest;
  return size + kFileRequestSize;
}

void PXRegularFile::parseAttrs(const ItemAttributes& attributes) const {
  PXFileInfo::parseAttrs(attributes);
  fileRecord_ = FileAttributes(attributes);
}

}  // namespace hoist
