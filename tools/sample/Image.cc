// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Image.h"

#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <cstring>
#include <span>

#include "sample/PrintableText.h"
#include "sample/SymbolTable.h"
#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

// The kernel's library has two pages; more is a forgery.
constexpr std::size_t kLargestKernelLibrary = 1024 * 1024;

bool isElf(int file) {
  char magic[SELFMAG];
  return ::pread(file, magic, SELFMAG, 0) == SELFMAG && std::memcmp(magic, ELFMAG, SELFMAG) == 0;
}

std::vector<char> readKernelLibrary(const TargetProcess& process, const ImageRange& range) {
  std::vector<char> bytes;
  if (range.end - range.start > kLargestKernelLibrary) return bytes;
  bytes.resize(range.end - range.start);
  bytes.resize(process.readMemory(range.start, std::as_writable_bytes(std::span(bytes))));
  return bytes;
}

std::vector<std::byte> readBuildID(Elf* elf) {
  const void* bytes = nullptr;
  ssize_t length = ::dwelf_elf_gnu_build_id(elf, &bytes);
  if (length <= 0 || length > 64) return {};
  const auto* first = static_cast<const std::byte*>(bytes);
  return {first, first + length};
}

int findElf(Dwfl_Module*, void** userData, const char*, Dwarf_Addr, char**, Elf** elf) noexcept {
  *elf = static_cast<const Image*>(*userData)->openElf();
  return -1;  // the handle needs no descriptor of libdwfl's
}

// The name in the program's debug link is among the arguments, and stays unused.
int findDebugFile(Dwfl_Module*, void** userData, const char*, Dwarf_Addr, const char*, const char*,
                  GElf_Word, char**) noexcept {
  if (userData == nullptr || *userData == nullptr) return -1;
  try {
    return static_cast<const Image*>(*userData)->openDebugFile().release();
  } catch (const std::exception&) {
    return -1;
  }
}

}  // namespace

const Dwfl_Callbacks kImageCallbacks = {findElf, findDebugFile, nullptr, nullptr};

Image::Image(const TargetProcess& process, ImageRange range, std::string debugFolder)
    : range_(std::move(range)),
      debugFolder_(std::move(debugFolder)),
      path_(printableText(range_.first.path)),
      name_(path_.substr(path_.rfind('/') + 1)) {
  if (range_.first.isFile()) {
    file_ = openMappedFile(process, range_.first);
    if (file_ && !isElf(file_.get())) file_.reset();
  } else {
    memory_ = readKernelLibrary(process, range_);
  }
  if (Elf* elf = openElf()) {
    buildIDBytes_ = readBuildID(elf);
    buildID_ = buildIDText(buildIDBytes_);
    ::elf_end(elf);
  }
}

Image::~Image() = default;

Elf* Image::openElf() const {
  static const unsigned version = ::elf_version(EV_CURRENT);
  if (version == EV_NONE) return nullptr;
  Elf* elf = nullptr;
  if (file_) {
    elf = ::elf_begin(file_.get(), ELF_C_READ, nullptr);
  } else if (!memory_.empty()) {
    elf = ::elf_memory(memory_.data(), memory_.size());
  }
  if (elf != nullptr && ::elf_kind(elf) != ELF_K_ELF) {
    ::elf_end(elf);
    return nullptr;
  }
  return elf;
}

FileDescriptor Image::openDebugFile() const {
  FileDescriptor file = sample::openDebugFile(debugFolder_, buildIDBytes_);
  if (!file || !isElf(file.get())) return {};
  // Its name claims the identifier; its own note must say the same.
  Elf* elf = ::elf_begin(file.get(), ELF_C_READ, nullptr);
  bool matches = elf != nullptr && readBuildID(elf) == buildIDBytes_;
  ::elf_end(elf);
  return matches ? std::move(file) : FileDescriptor();
}

const SymbolTable& Image::symbols() {
  if (!symbols_) symbols_ = std::make_unique<SymbolTable>(*this);
  return *symbols_;
}

Dwfl_Module* reportImage(Dwfl* session, Image& image) {
  const ImageRange& range = image.range();
  Dwfl_Module* module = ::dwfl_report_module(session, image.path().c_str(), range.start, range.end);
  if (module == nullptr) return nullptr;
  void** userData = nullptr;
  ::dwfl_module_info(module, &userData, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  *userData = &image;
  return module;
}

}  // namespace hoist::sample
