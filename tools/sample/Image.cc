// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Image.h"

#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "sample/PrintableText.h"
#include "sample/SymbolTable.h"
#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

// The kernel's library has two pages; more is a forgery.
constexpr std::size_t kLargestKernelLibrary = 1024 * 1024;
// Far above what linkers write: some ten segments, some hundred bytes of notes, 20 of identifier.
constexpr std::size_t kMostSegments = 256;
constexpr std::size_t kMostNotes = 64 * 1024;
constexpr std::size_t kLongestBuildID = 64;

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

// From one segment of notes; empty when it has no build identifier.
std::vector<std::byte> buildIDAmong(Elf_Data* notes) {
  GElf_Nhdr header;
  std::size_t name = 0;
  std::size_t description = 0;
  for (std::size_t at = 0; (at = ::gelf_getnote(notes, at, &header, &name, &description)) > 0;) {
    const auto* bytes = static_cast<const std::byte*>(notes->d_buf);
    if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == sizeof ELF_NOTE_GNU &&
        std::memcmp(bytes + name, ELF_NOTE_GNU, sizeof ELF_NOTE_GNU) == 0 &&
        header.n_descsz <= kLongestBuildID) {
      return {bytes + description, bytes + description + header.n_descsz};
    }
  }
  return {};
}

// libdwelf has a function for this, but it reads sections of whatever size they claim.
std::vector<std::byte> readBuildID(Elf* elf) {
  std::size_t count = 0;
  if (::elf_getphdrnum(elf, &count) != 0) return {};
  for (std::size_t i = 0; i < std::min(count, kMostSegments); ++i) {
    GElf_Phdr segment;
    if (::gelf_getphdr(elf, static_cast<int>(i), &segment) == nullptr) break;
    if (segment.p_type != PT_NOTE || segment.p_filesz > kMostNotes) continue;
    Elf_Data* notes =
        ::elf_getdata_rawchunk(elf, static_cast<std::int64_t>(segment.p_offset), segment.p_filesz,
                               segment.p_align == 8 ? ELF_T_NHDR8 : ELF_T_NHDR);
    if (notes == nullptr || notes->d_buf == nullptr) continue;
    if (auto found = buildIDAmong(notes); !found.empty()) return found;
  }
  return {};
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
