// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Reading a whole tree, or one large folder, with type, owner, mode, times and sizes of every item.
// Each line is one round over all of it; times are for one item.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <ftw.h>
#include <malloc.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXDirectoryWalk.h"
#include "filesystem/PXPath.h"
#include "platform/FileDescriptor.h"
#include "support/FileTree.h"

namespace {

using namespace hoist;

const bench::FileTree& files() {
  static const bool isFolder = [] {
    auto shape = std::getenv("HOIST_BENCH_SHAPE");
    return shape && std::strcmp(shape, "folder") == 0;
  }();
  static const bench::FileTree tree(isFolder ? 0 : 2'000, isFolder ? 100'000 : 200'000, 0);
  return tree;
}

void finish(benchmark::State& state, long found) {
  if (found != files().items()) state.SkipWithError("not everything was found");
}

// What the report takes as the time of an operation.
template <class Read>
void measure(benchmark::State& state, Read&& read) {
  files();
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    long found = read();
    auto time = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(std::chrono::duration<double>(time).count() /
                           static_cast<double>(files().items()));
    finish(state, found);
  }
}

// ---- The limit ----

constexpr unsigned kMask = STATX_BASIC_STATS | STATX_BTIME;

// Calls back with each folder found.
template <class Folder>
long readRaw(int folder, Folder&& enter) {
  char buffer[16384];
  long found = 0;
  while (auto length = ::getdents64(folder, buffer, sizeof buffer)) {
    if (length < 0) break;
    for (ssize_t position = 0; position < length;) {
      auto item = reinterpret_cast<dirent64*>(buffer + position);
      position += item->d_reclen;
      if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0) continue;
      struct statx status;
      if (::statx(folder, item->d_name, AT_SYMLINK_NOFOLLOW, kMask, &status) != 0) continue;
      benchmark::DoNotOptimize(status);
      ++found;
      if (S_ISDIR(status.stx_mode)) enter(item->d_name);
    }
  }
  return found;
}

long readRawTree(int above, const char* name) {
  FileDescriptor folder(::openat(above, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<std::string> below;
  long found = readRaw(folder.get(), [&](const char* inner) { below.emplace_back(inner); });
  for (auto& inner : below) found += readRawTree(folder.get(), inner.c_str());
  return found;
}

void Raw(benchmark::State& state) {
  measure(state, [] { return readRawTree(AT_FDCWD, files().path().c_str()); });
}

void RawTwoThreads(benchmark::State& state) {
  measure(state, [] {
    FileDescriptor top(::open(files().path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> names;
    std::atomic<std::size_t> next = 0;
    std::atomic<long> found = 0;
    if (auto directory = ::fdopendir(::dup(top.get()))) {
      while (auto item = ::readdir(directory)) {
        if (item->d_name[0] != '.') names.emplace_back(item->d_name);
      }
      ::closedir(directory);
    }
    auto work = [&] {
      constexpr std::size_t kPiece = 64;
      for (;;) {
        auto from = next.fetch_add(kPiece);
        if (from >= names.size()) return;
        for (auto i = from; i < std::min(from + kPiece, names.size()); ++i) {
          struct statx status;
          ::statx(top.get(), names[i].c_str(), AT_SYMLINK_NOFOLLOW, kMask, &status);
          ++found;
          if (S_ISDIR(status.stx_mode)) found += readRawTree(top.get(), names[i].c_str());
        }
      }
    };
    std::thread other(work);
    work();
    other.join();
    return found.load();
  });
}

// ---- The product ----

long readDirectory(const Ref<PXDirectory>& top) {
  long found = 0;
  std::vector<Ref<PXDirectory>> pending = {top};
  while (!pending.empty()) {
    auto directory = std::move(pending.back());
    pending.pop_back();
    for (auto child = directory->firstObject().get(); child; child = child->nextObj().get()) {
      benchmark::DoNotOptimize(child->modifiedTimeSpec());
      ++found;
      if (child->isDirectory()) pending.push_back(child->asDirectory());
    }
  }
  return found;
}

long walkDirectories() {
  long found = -1;  // the top
  PXDirectoryWalk walk(PXPath::pathWithPath(files().path()));
  while (auto directory = walk.next()) {
    ++found;
    for (auto child = directory->firstObject().get(); child; child = child->nextObj().get()) {
      benchmark::DoNotOptimize(child->modifiedTimeSpec());
      if (!child->isDirectory()) ++found;
    }
  }
  return found;
}

// Counted before anything was released: that goes on in the background for a while.
double countBytesOfItem() {
  files();
  auto inUse = [] {
    auto memory = ::mallinfo2();
    return static_cast<double>(memory.uordblks + memory.hblkhd);
  };
  auto before = inUse();
  static auto& kept = *new std::vector<Ref<PXDirectory>>;
  kept.push_back(PXDirectory::directoryWithPath(files().path()));
  readDirectory(kept.back());
  return (inUse() - before) / static_cast<double>(files().items());
}

double bytesOfItem() {
  static const double bytes = countBytesOfItem();
  return bytes;
}

void Hoist(benchmark::State& state) {
  state.counters["bytes"] = bytesOfItem();
  measure(state, [] { return readDirectory(PXDirectory::directoryWithPath(files().path())); });
}

void HoistWalk(benchmark::State& state) {
  bytesOfItem();
  measure(state, walkDirectories);
}

// ---- Its peers ----

long nftwFound = 0;

int countItem(const char*, const struct stat*, int, struct FTW*) {
  ++nftwFound;
  return 0;
}

void Nftw(benchmark::State& state) {
  measure(state, [] {
    nftwFound = -1;  // the top
    ::nftw(files().path().c_str(), countItem, 64, FTW_PHYS);
    return nftwFound;
  });
}

void Fts(benchmark::State& state) {
  measure(state, [] {
    char* paths[] = {const_cast<char*>(files().path().c_str()), nullptr};
    long found = -1;
    auto tree = ::fts_open(paths, FTS_PHYSICAL, nullptr);
    while (auto entry = ::fts_read(tree)) {
      if (entry->fts_info != FTS_DP) ++found;
    }
    ::fts_close(tree);
    return found;
  });
}

void Find(benchmark::State& state) {
  measure(state, [] {
    bool done =
        bench::runQuietly("find '" + files().path() + "' -printf '%y %U %G %m %s %b %T@ %p\\n'");
    return done ? files().items() : 0;
  });
}

void StdFilesystem(benchmark::State& state) {
  measure(state, [] {
    long found = 0;
    for (auto& entry : std::filesystem::recursive_directory_iterator(files().path())) {
      struct stat status;
      ::lstat(entry.path().c_str(), &status);
      benchmark::DoNotOptimize(status);
      ++found;
    }
    return found;
  });
}

BENCHMARK(Raw)->UseManualTime()->Iterations(1);
BENCHMARK(RawTwoThreads)->UseManualTime()->Iterations(1);
BENCHMARK(Hoist)->UseManualTime()->Iterations(1);
BENCHMARK(HoistWalk)->UseManualTime()->Iterations(1);
BENCHMARK(Nftw)->UseManualTime()->Iterations(1);
BENCHMARK(Fts)->UseManualTime()->Iterations(1);
BENCHMARK(Find)->UseManualTime()->Iterations(1);
BENCHMARK(StdFilesystem)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
