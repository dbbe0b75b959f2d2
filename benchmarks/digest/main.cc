// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What a repeated launch pays for knowing that the helper is unchanged: the digest of a file of
// 20 MiB. The limits are the bare digest functions over memory that is already there.
//
// Each line is one round over the whole file. Run with
//   --benchmark_enable_random_interleaving=true --benchmark_repetitions=9
// so that the lines can be compared although the machine is noisy.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "platform/Digest.h"
#include "platform/FileDescriptor.h"
#include "platform/SealedFile.h"
#include "platform/SystemCall.h"

namespace {

using namespace hoist;

constexpr std::size_t kSize = 20 * 1024 * 1024;

const std::vector<std::uint8_t>& content() {
  static const auto& bytes = *[] {
    auto* made = new std::vector<std::uint8_t>(kSize);
    std::uint32_t state = 1;
    for (auto& byte : *made)
      byte = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    return made;
  }();
  return bytes;
}

// The content as an unnamed file, in the page cache.
int file() {
  static const int fd = [] {
    const char* folder = std::getenv("TMPDIR");
    FileDescriptor made(systemCall("open", [&] {
      return open(folder ? folder : "/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    }));
    std::size_t written = 0;
    while (written < kSize) {
      written += static_cast<std::size_t>(systemCall(
          "write", [&] { return write(made.get(), content().data() + written, kSize - written); }));
    }
    return made.release();
  }();
  return fd;
}

void countBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kSize));
}

void nettleSHA1(benchmark::State& state) {
  std::array<std::uint8_t, SHA1_DIGEST_SIZE> digest;
  for (auto _ : state) {
    sha1_ctx context;
    sha1_init(&context);
    sha1_update(&context, kSize, content().data());
    sha1_digest(&context, digest.size(), digest.data());
    benchmark::DoNotOptimize(digest);
  }
  countBytes(state);
}

void nettleSHA256(benchmark::State& state) {
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest;
  for (auto _ : state) {
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, kSize, content().data());
    sha256_digest(&context, digest.size(), digest.data());
    benchmark::DoNotOptimize(digest);
  }
  countBytes(state);
}

void openSSL(benchmark::State& state, const EVP_MD* algorithm) {
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest;
  unsigned size = 0;
  for (auto _ : state) {
    EVP_Digest(content().data(), kSize, digest.data(), &size, algorithm, nullptr);
    benchmark::DoNotOptimize(digest);
  }
  countBytes(state);
}

void oursSHA1OfMemory(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::sha1(content()));
  countBytes(state);
}

void oursSHA1OfFile(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::sha1OfFile(file(), kSize));
  countBytes(state);
}

void oursSHA256OfFile(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::sha256OfFile(file(), kSize));
  countBytes(state);
}

// A first launch: copy, seal and both digests.
void oursSealedCopy(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(platform::SealedFile::copyOf(file(), kSize, "bench").size());
  }
  countBytes(state);
}

// A further launch: the file is compared with the copy.
void oursComparison(benchmark::State& state) {
  const auto copy = platform::SealedFile::copyOf(file(), kSize, "bench");
  for (auto _ : state) benchmark::DoNotOptimize(copy.isCopyOf(file()));
  countBytes(state);
}

// The same copy without seal and digests, by the kernel alone.
void kernelCopy(benchmark::State& state) {
  for (auto _ : state) {
    const FileDescriptor memory(memfd_create("bench", MFD_CLOEXEC));
    off_t offset = 0;
    while (offset < static_cast<off_t>(kSize)) {
      systemCall("sendfile", [&] { return sendfile(memory.get(), file(), &offset, kSize); });
    }
  }
  countBytes(state);
}

BENCHMARK(nettleSHA1)->Name("SHA-1/nettle, memory")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(openSSL, sha1, EVP_sha1())
    ->Name("SHA-1/OpenSSL, memory")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(oursSHA1OfMemory)->Name("SHA-1/ours, memory")->Unit(benchmark::kMillisecond);
BENCHMARK(oursSHA1OfFile)->Name("SHA-1/ours, file")->Unit(benchmark::kMillisecond);
BENCHMARK(nettleSHA256)->Name("SHA-256/nettle, memory")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(openSSL, sha256, EVP_sha256())
    ->Name("SHA-256/OpenSSL, memory")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(oursSHA256OfFile)->Name("SHA-256/ours, file")->Unit(benchmark::kMillisecond);
BENCHMARK(kernelCopy)->Name("copy/kernel alone")->Unit(benchmark::kMillisecond);
BENCHMARK(oursComparison)->Name("comparison/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(oursSealedCopy)->Name("copy/ours, sealed, both digests")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
