// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A large folder is read by two threads. Each takes turns with the other in reading some hundred
// names, looks at those items and makes their children; so the names come in the folder's order,
// and everything else, nine tenths of the time, happens side by side. Each turn has a number, by
// which the pieces are put together at the end. Nothing else is shared, and one thread can do it
// all: the second one may come late or never.
//
// A folder whose names fit into the first buffer is read by one thread. Measured with buffers of
// forty names instead, which lets two threads share a folder of a hundred: a tree of such folders
// took a fifth longer, because waking a thread costs more than it can take over.

#include "filesystem/BulkReading.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <iterator>
#include <vector>

#include "exceptions/KLException.h"
#include "filesystem/Listing.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXRegularFile.h"
#include "platform/DispatchHelp.h"
#include "platform/attrlist/AttributeCalls.h"

namespace hoist {

using namespace attrlist;

namespace {

constexpr AttributeSet kBulkRequest = {
    .common = 0x2278F0B | ATTR_CMN_RETURNED_ATTRS,  // what PXFileInfo asks for, and the name
    .directory = ATTR_DIR_LINKCOUNT | ATTR_DIR_ENTRYCOUNT | ATTR_DIR_MOUNTSTATUS,
    .file = ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE | ATTR_FILE_DATALENGTH};

// The children of one turn.
struct Piece {
  std::uint64_t number;
  ChildList children;
};

// What one thread reads of a folder.
class Reader {
 public:
  Reader(int folder, const Ref<PXPath>& path, BulkTurns& turns)
      : folder_(folder), path_(path), buffer_(turns) {}

  // Reads the next children; false at the end.
  bool read() {
    if (readBatch() == 0) return false;
    if (pieces_.empty() || pieces_.back().number != buffer_.number()) {
      pieces_.push_back({buffer_.number(), {}});
    }
    makeChildren(pieces_.back().children);
    return true;
  }

  bool mayHaveMany() const { return buffer_.isFull(); }
  std::vector<Piece> takePieces() { return std::move(pieces_); }

 private:
  int readBatch();
  void makeChildren(ChildList& children);

  const int folder_;
  const Ref<PXPath>& path_;
  BulkBuffer buffer_;
  std::vector<Piece> pieces_;
};

int Reader::readBatch() {
  auto& calls = AttributeCalls::current();
  int count = calls.getattrlistbulk(folder_, kBulkRequest, buffer_, FSOPT_PACK_INVAL_ATTRS);
  if (count < 0 && errno == ERANGE) {
    count = calls.getattrlistbulk(folder_, kBulkRequest, buffer_, FSOPT_PACK_INVAL_ATTRS);
  }
  if (count < 0) {
    KLException::errnoWithName("IO", "failed to read directory")
        .setPathObject(*path_)
        .setAPI("getattrlistbulk")
        .raise();
  }
  return count;
}

std::size_t roomFor(const BulkEntry& entry) {
  bool isFolder = entry.attributes.objectType == static_cast<std::uint32_t>(VnodeType::Directory);
  return isFolder ? Listing::roomFor<PXDirectory>(entry.nameLength)
                  : Listing::roomFor<PXRegularFile>(entry.nameLength);
}

void Reader::makeChildren(ChildList& children) {
  std::size_t room = 0;
  for (auto& entry : buffer_.entries()) room += roomFor(entry);
  auto listing = Listing::ofFolder(path_, room);
  for (auto& entry : buffer_.entries()) {
    if (auto child = PXFileInfo::initWithBatchAttr(entry, *listing)) {
      children.append(std::move(child));
    }
  }
}

// Reads on until the end, or until either of the readers has failed.
void readOn(Reader& reader, std::atomic<bool>& failed) {
  try {
    while (!failed && reader.read()) continue;
  } catch (...) {
    failed = true;
    throw;
  }
}

ChildList joined(std::vector<Piece> pieces, std::vector<Piece> others = {}) {
  std::ranges::move(others, std::back_inserter(pieces));
  std::ranges::sort(pieces, {}, &Piece::number);
  ChildList children;
  for (auto& piece : pieces) children.append(std::move(piece.children));
  return children;
}

}  // namespace

ChildList readInBulk(int folder, const Ref<PXPath>& path) {
  BulkTurns turns;
  Reader reader(folder, path, turns);
  std::atomic<bool> failed = false;
  if (!reader.read()) return {};
  if (!reader.mayHaveMany()) {
    readOn(reader, failed);
    return joined(reader.takePieces());
  }
  Reader helper(folder, path, turns);
  dispatch::runWithHelp([&] { readOn(reader, failed); }, [&] { readOn(helper, failed); });
  return joined(reader.takePieces(), helper.takePieces());
}

}  // namespace hoist
