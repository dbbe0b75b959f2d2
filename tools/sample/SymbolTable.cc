// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// libdwfl finds and joins the symbol tables; looking one address up with it goes through all
// symbols every time, so they are sorted here once. A program without symbols still tells its
// functions apart through .eh_frame_hdr, the sorted list of the functions that can be unwound.
#include "sample/SymbolTable.h"

#include <dwarf.h>
#include <fmt/format.h>
#include <gelf.h>

#include <algorithm>
#include <cstring>

#include "sample/Image.h"
#include "sample/PrintableText.h"

namespace hoist::sample {
namespace {

// Picked: the largest programs known have about 4 million functions.
constexpr std::size_t kMostFunctions = 16'000'000;
// How many symbols before an address are asked whether they reach up to it (nested ones).
constexpr int kLookBack = 16;

unsigned rankOf(const GElf_Sym& symbol, const char* name) {
  unsigned binding = GELF_ST_BIND(symbol.st_info) == STB_GLOBAL ? 0
                     : GELF_ST_BIND(symbol.st_info) == STB_WEAK ? 1
                                                                : 2;
  unsigned type = GELF_ST_TYPE(symbol.st_info) == STT_NOTYPE ? 1 : 0;
  // The C library's inner names begin with underscores, the ones that people call do not.
  auto underscores = static_cast<unsigned>(std::strspn(name, "_"));
  bool mangled = std::strncmp(name, "_Z", 2) == 0;
  return type << 16 | (mangled ? 0 : std::min(underscores, 15u)) << 8 | binding;
}

bool isFunction(const GElf_Sym& symbol, const char* name) {
  int type = GELF_ST_TYPE(symbol.st_info);
  return name != nullptr && *name != '\0' && symbol.st_shndx != SHN_UNDEF &&
         symbol.st_shndx != SHN_ABS &&
         (type == STT_FUNC || type == STT_GNU_IFUNC || type == STT_NOTYPE);
}

std::int32_t int32At(const Elf_Data& data, std::size_t offset) {
  std::int32_t value;
  std::memcpy(&value, static_cast<const char*>(data.d_buf) + offset, sizeof value);
  return value;
}

// The bytes that the program header PT_GNU_EH_FRAME names, and their address in the file's terms.
Elf_Data* unwindingIndex(Elf* elf, GElf_Addr& address) {
  std::size_t count = 0;
  if (elf == nullptr || ::elf_getphdrnum(elf, &count) != 0) return nullptr;
  for (std::size_t i = 0; i < count; ++i) {
    GElf_Phdr header;
    if (::gelf_getphdr(elf, static_cast<int>(i), &header) == nullptr) return nullptr;
    if (header.p_type != PT_GNU_EH_FRAME) continue;
    address = header.p_vaddr;
    return ::elf_getdata_rawchunk(elf, static_cast<std::int64_t>(header.p_offset), header.p_filesz,
                                  ELF_T_BYTE);
  }
  return nullptr;
}

}  // namespace

SymbolTable::SymbolTable(Image& image)
    : imageName_(image.name()),
      imageStart_(image.range().start),
      imageEnd_(image.range().end),
      session_(::dwfl_begin(&kImageCallbacks), ::dwfl_end) {
  if (!session_) return;
  ::dwfl_report_begin(session_.get());
  Dwfl_Module* module = reportImage(session_.get(), image);
  ::dwfl_report_end(session_.get(), nullptr, nullptr);
  if (module == nullptr) return;
  readSymbols(module);
  readUnwindingTable(module);
}

void SymbolTable::readSymbols(Dwfl_Module* module) {
  const int count = ::dwfl_module_getsymtab(module);
  for (int i = 1; i < count && symbols_.size() < kMostFunctions; ++i) {
    GElf_Sym symbol;
    GElf_Addr address = 0;
    const char* name =
        ::dwfl_module_getsym_info(module, i, &symbol, &address, nullptr, nullptr, nullptr);
    if (!isFunction(symbol, name) || address < imageStart_ || address >= imageEnd_) continue;
    Address end = address + std::min<Address>(symbol.st_size, imageEnd_ - address);
    symbols_.push_back({address, end, name, rankOf(symbol, name)});
  }
  // Of names for the same address the best one comes last, where a search from above meets it.
  std::sort(symbols_.begin(), symbols_.end(), [](const Symbol& a, const Symbol& b) {
    if (a.start != b.start) return a.start < b.start;
    return a.rank != b.rank ? a.rank > b.rank : std::strcmp(a.name, b.name) > 0;
  });
}

void SymbolTable::readUnwindingTable(Dwfl_Module* module) {
  GElf_Addr bias = 0;
  Elf* elf = ::dwfl_module_getelf(module, &bias);
  GElf_Addr base = 0;
  Elf_Data* data = unwindingIndex(elf, base);
  // Version 1; a 4-byte pointer to the table, a 4-byte count, and pairs of 4-byte offsets from the
  // header (LSB Core, "Exception Frames"): the form that every linker writes.
  constexpr std::size_t kHeader = 12;
  if (data == nullptr || data->d_buf == nullptr || data->d_size < kHeader) return;
  const auto* bytes = static_cast<const unsigned char*>(data->d_buf);
  if (bytes[0] != 1 || (bytes[1] & 0x0f) != DW_EH_PE_sdata4 || bytes[2] != DW_EH_PE_udata4 ||
      bytes[3] != (DW_EH_PE_datarel | DW_EH_PE_sdata4)) {
    return;
  }
  const std::size_t symbolCount = symbols_.size();
  auto count = std::min<std::size_t>(static_cast<std::uint32_t>(int32At(*data, 8)),
                                     (data->d_size - kHeader) / 8);
  for (std::size_t i = 0; i < count && symbols_.size() < kMostFunctions; ++i) {
    Address start = bias + base + static_cast<Address>(int32At(*data, kHeader + i * 8));
    if (start < imageStart_ || start >= imageEnd_ || isCovered(start, symbolCount)) continue;
    symbols_.push_back({start, start, nullptr, 0});
  }
  std::stable_sort(symbols_.begin(), symbols_.end(),
                   [](const Symbol& a, const Symbol& b) { return a.start < b.start; });
}

// True if one of the first symbols begins at the address or reaches over it.
bool SymbolTable::isCovered(Address address, std::size_t symbolCount) const {
  auto end = symbols_.begin() + static_cast<std::ptrdiff_t>(symbolCount);
  auto next = std::upper_bound(symbols_.begin(), end, address,
                               [](Address a, const Symbol& symbol) { return a < symbol.start; });
  return next != symbols_.begin() && (next[-1].start == address || next[-1].end > address);
}

const SymbolTable::Symbol* SymbolTable::symbolAt(Address address) const {
  auto next = std::upper_bound(symbols_.begin(), symbols_.end(), address,
                               [](Address a, const Symbol& symbol) { return a < symbol.start; });
  if (next == symbols_.begin()) return nullptr;
  auto nearest = std::prev(next);
  auto symbol = nearest;
  for (int i = 0; i < kLookBack; ++i) {
    if (symbol->end > address) return &*symbol;
    if (symbol == symbols_.begin()) break;
    --symbol;
  }
  // None is known to reach up to the address: it is in the nearest one if that has no known end.
  return nearest->start == nearest->end ? &*nearest : nullptr;
}

std::optional<SymbolTable::Function> SymbolTable::functionAt(Address address) const {
  const Symbol* symbol = symbolAt(address);
  if (symbol == nullptr) return std::nullopt;
  if (symbol->name != nullptr) return Function{functionName(symbol->name), symbol->start};
  return Function{fmt::format("{}+{:#x}", imageName_, symbol->start - imageStart_), symbol->start};
}

}  // namespace hoist::sample
