// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <elfutils/libdwfl.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sample/MemoryMap.h"

namespace hoist::sample {

class Image;

// The functions of one image by address: the symbols of its file, those of its debug file if that
// is installed, and, for what has no symbol, the beginnings that the unwinding tables know.
// Immutable once made.
class SymbolTable {
 public:
  struct Function {
    // Fit for printing; made up of the image's name and an offset when there is no symbol.
    std::string name;
    Address start = 0;
  };

  explicit SymbolTable(Image& image);

  // The function that holds the address; none if it lies before every known one.
  std::optional<Function> functionAt(Address address) const;

 private:
  struct Symbol {
    Address start;
    Address end;       // start itself when the size is not known
    const char* name;  // null when only the unwinding tables know it; owned by the session
    unsigned rank;     // of several names for one address the lowest is shown
  };
  void readSymbols(Dwfl_Module* module);
  void readUnwindingTable(Dwfl_Module* module);
  bool isCovered(Address address, std::size_t symbolCount) const;
  const Symbol* symbolAt(Address address) const;

  std::string imageName_;
  Address imageStart_;
  Address imageEnd_;
  std::unique_ptr<Dwfl, void (*)(Dwfl*)> session_;
  std::vector<Symbol> symbols_;
};

}  // namespace hoist::sample
