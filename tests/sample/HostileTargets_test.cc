// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// Programs that put something else before the sampler than it expects.
#include <elf.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>

#include "ParsedReport.h"
#include "Programs.h"
#include "sample/ImageFile.h"
#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

constexpr uid_t kClient = 54321;

class HostileTarget : public testing::Test {
 protected:
  HostileTarget() {
    std::filesystem::copy(targetPath("menu.so"), folder_.path("menu.so"));
    std::filesystem::copy(targetPath("bare"), folder_.path("bare"));
  }
  // Samples, as root or as an ordinary user; there must be a report, and soon.
  ParsedReport sample(const Target& target, const std::function<void()>& prepare = {}) {
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = runSampler({std::to_string(target.id()), "-duration", "0.15"}, prepare);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    ParsedReport report(outcome.output);
    EXPECT_EQ(report.contradiction(), "");
    EXPECT_GT(report.stacks, 0u);
    return report;
  }
  // A target that computes in the library, which is changed on disk once it does.
  ParsedReport sampleWithLibrary(const std::function<void(const std::string&)>& change) {
    const std::string path = folder_.path("menu.so");
    std::filesystem::copy(targetPath("menu.so"), path,
                          std::filesystem::copy_options::overwrite_existing);
    Target target(folder_.path("bare"), "wait");
    target.tell("serve " + path);
    EXPECT_TRUE(eventually([&] { return sample(target).has("(in menu.so)"); }));
    change(path);
    return sample(target);
  }
  static void becomeClient() {
    if (::setgroups(0, nullptr) != 0 || ::setresgid(kClient, kClient, kClient) != 0 ||
        ::setresuid(kClient, kClient, kClient) != 0) {
      ::_exit(9);
    }
  }

  TestFolder folder_;
};

// Overwrites bytes of a file in place.
void patch(const std::string& path, std::size_t offset, const void* bytes, std::size_t size) {
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::pwrite(file.get(), bytes, size, static_cast<off_t>(offset)),
            static_cast<ssize_t>(size));
}

// The headers of the library's sections, and where they lie in the file.
struct Sections {
  explicit Sections(const std::string& path) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(::pread(file.get(), &header, sizeof header, 0), ssize_t{sizeof header});
    sections.resize(header.e_shnum);
    EXPECT_GT(::pread(file.get(), sections.data(), sections.size() * sizeof sections[0],
                      static_cast<off_t>(header.e_shoff)),
              0);
  }
  std::size_t place(std::size_t index) const { return header.e_shoff + index * sizeof(Elf64_Shdr); }
  std::size_t find(std::uint32_t type) const {
    for (std::size_t i = 0; i < sections.size(); ++i) {
      if (sections[i].sh_type == type) return i;
    }
    return 0;
  }
  Elf64_Ehdr header;
  std::vector<Elf64_Shdr> sections;
};

TEST_F(HostileTarget, MayHaveADebugLinkToAFIFO) {
  ASSERT_EQ(::mkfifo(folder_.path("trap").c_str(), 0666), 0);
  std::string link = "trap";
  link.resize(8 + 4);
  folder_.write("link", link);
  const std::string program = folder_.path("linked");
  Program objcopy({"/usr/bin/objcopy", "--strip-all", "--remove-section=.note.gnu.build-id",
                   "--add-section", ".gnu_debuglink=" + folder_.path("link"), targetPath("bare"),
                   program});
  ASSERT_EQ(objcopy.wait(), 0);
  Target target(program);
  EXPECT_TRUE(sample(target).has("(in linked)"));
}

TEST_F(HostileTarget, GetsNoFileOpenedThatItsDebugLinkNames) {
  folder_.write("secret", "secret");
  std::filesystem::create_directories(folder_.path("a/b"));
  std::string link = "../../secret";
  link.resize(16 + 4);
  folder_.write("link", link);
  const std::string program = folder_.path("a/b/linked");
  Program objcopy({"/usr/bin/objcopy", "--strip-all", "--add-section",
                   ".gnu_debuglink=" + folder_.path("link"), targetPath("bare"), program});
  ASSERT_EQ(objcopy.wait(), 0);
  FileDescriptor watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  ASSERT_GE(::inotify_add_watch(watch.get(), folder_.path("secret").c_str(), IN_OPEN), 0);
  Target target(program);
  sample(target);
  char events[4096];
  EXPECT_EQ(::read(watch.get(), events, sizeof events), -1) << "somebody opened the secret";
}

TEST_F(HostileTarget, MayPutAFIFOInThePlaceOfItsProgram) {
  std::filesystem::copy(targetPath("bare"), folder_.path("cook"));
  Target target(folder_.path("cook"), "stir", 1, 5,
                ::geteuid() == 0 ? becomeClient : std::function<void()>());
  std::filesystem::remove(folder_.path("cook"));
  ASSERT_EQ(::mkfifo(folder_.path("cook").c_str(), 0666), 0);
  if (::geteuid() == 0) {
    // The mapping itself leads root to the program that was removed.
    EXPECT_TRUE(sample(target).has("kitchen::stir"));
    EXPECT_FALSE(sample(target, becomeClient).has("kitchen::stir"));
  } else {
    EXPECT_FALSE(sample(target).has("kitchen::stir"));
  }
}

TEST_F(HostileTarget, IsNotBelievedThatAnotherFileIsTheMappedOne) {
  Target target(folder_.path("bare"));
  const TargetProcess process = TargetProcess::open(target.id());
  Mapping mapping = imageRanges(process.memoryMap()).front().first;
  ASSERT_TRUE(openMappedFile(process, mapping));
  // The kernel's link from the mapping is not there: only the name can be tried.
  mapping.start += 4096;
  EXPECT_TRUE(openMappedFile(process, mapping));
  for (const char* name : {"/etc/passwd", "/dev/zero", "/proc/self/mem", "/tmp", "/nowhere", "",
                           "x", "/../../../etc/passwd", "//etc/passwd (deleted)"}) {
    mapping.path = name;
    EXPECT_FALSE(openMappedFile(process, mapping)) << name;
  }
  std::filesystem::create_symlink(folder_.path("bare"), folder_.path("link"));
  mapping.path = folder_.path("link");
  EXPECT_FALSE(openMappedFile(process, mapping));
}

TEST_F(HostileTarget, MayMapWhateverItLikes) {
  Target target(folder_.path("bare"));
  std::mt19937 random(1);
  std::string garbage(8192, '\0');
  for (char& c : garbage) c = static_cast<char>(random());
  folder_.write("garbage", garbage);
  folder_.write("magic",
                "\x7f"
                "ELF" +
                    garbage);
  folder_.write("short",
                "\x7f"
                "ELF\2\1\1");
  // 4 GiB that begin like a program, whose sections claim to be all of it.
  std::filesystem::copy(targetPath("menu.so"), folder_.path("giant"));
  Sections sections(folder_.path("giant"));
  for (std::size_t i = 1; i < sections.sections.size(); ++i) {
    sections.sections[i].sh_offset = 0;
    sections.sections[i].sh_size = std::uint64_t{4} << 30;
    patch(folder_.path("giant"), sections.place(i), &sections.sections[i], sizeof(Elf64_Shdr));
  }
  std::filesystem::resize_file(folder_.path("giant"), std::uintmax_t{4} << 30);
  for (const char* name : {"garbage", "magic", "short", "giant"}) {
    target.tell("map " + folder_.path(name));
  }
  target.tell("map /dev/zero");
  ParsedReport report = sample(target);
  EXPECT_TRUE(report.has("kitchen::stir"));
}

TEST_F(HostileTarget, MayRunALibraryThatClaimsToHoldGigabytes) {
  for (std::uint32_t type : {SHT_SYMTAB, SHT_STRTAB, SHT_DYNSYM, SHT_PROGBITS}) {
    ParsedReport report = sampleWithLibrary([&](const std::string& path) {
      Sections sections(path);
      Elf64_Shdr section = sections.sections[sections.find(type)];
      section.sh_size = std::uint64_t{4} << 30;
      patch(path, sections.place(sections.find(type)), &section, sizeof section);
      std::filesystem::resize_file(path, std::uintmax_t{5} << 30);
    });
    EXPECT_TRUE(report.has("(in menu.so)"));
  }
}

TEST_F(HostileTarget, MayRunALibraryWhoseTablesAreNonsense) {
  std::mt19937 random(7);
  for (int round = 0; round < 12; ++round) {
    sampleWithLibrary([&](const std::string& path) {
      Sections sections(path);
      // Some words of headers, symbols, names and unwinding tables; never of the code that runs.
      for (int word = 0; word < 40; ++word) {
        const auto& section = sections.sections[1 + random() % (sections.sections.size() - 1)];
        const bool isLoadedCode = (section.sh_flags & (SHF_EXECINSTR | SHF_WRITE)) != 0;
        const std::uint32_t value = random() % 3 == 0 ? 0xffffffffu : std::uint32_t(random());
        if (isLoadedCode || section.sh_type == SHT_NOBITS || section.sh_size < 8) continue;
        patch(path, section.sh_offset + random() % (section.sh_size - 4), &value, sizeof value);
        patch(path, sections.place(random() % sections.sections.size()) + random() % 60, &value,
              sizeof value);
      }
      patch(path, offsetof(Elf64_Ehdr, e_shoff) + (round % 3 == 0 ? 0 : 6), "\xff\xff", 2);
    });
  }
}

TEST_F(HostileTarget, MayCutItsFilesShort) {
  // What a reader that maps files dies of.
  sampleWithLibrary([](const std::string& path) {
    Sections sections(path);
    std::filesystem::resize_file(path,
                                 sections.sections[sections.find(SHT_SYMTAB)].sh_offset + 100);
  });
}

TEST_F(HostileTarget, MayHaveAStackThatLeadsNowhere) {
  // The unwinding tables of one function sent through all kinds of nonsense is covered above; here
  // the stack is deeper than is kept.
  Target target("bare", "stir", 1, 5000);
  ParsedReport report = sample(target);
  std::size_t deepest = 0;
  for (const auto& line : report.graph) deepest = std::max(deepest, line.depth);
  EXPECT_EQ(deepest, 512u);
}

class DebugFile : public testing::Test {
 protected:
  DebugFile() {
    std::filesystem::create_directories(folder_.path(".build-id/ab"));
    folder_.write(".build-id/ab/cdef.debug", "x");
  }
  bool isFound() { return static_cast<bool>(openDebugFile(folder_.path(""), kIdentifier)); }
  static constexpr std::byte kIdentifier[] = {std::byte{0xab}, std::byte{0xcd}, std::byte{0xef}};

  TestFolder folder_;
};

TEST_F(DebugFile, IsFoundByItsBuildIdentifier) {
  EXPECT_TRUE(isFound());
  EXPECT_EQ(buildIDText(kIdentifier), "abcdef");
  EXPECT_FALSE(openDebugFile(folder_.path(""), {}));
  EXPECT_FALSE(openDebugFile(folder_.path(""), std::span(kIdentifier).first(1)));
  EXPECT_FALSE(openDebugFile(folder_.path("nowhere"), kIdentifier));
}

TEST_F(DebugFile, MayBeALinkWithinTheFolderOnly) {
  std::filesystem::rename(folder_.path(".build-id/ab/cdef.debug"), folder_.path("real"));
  std::filesystem::create_symlink("../../real", folder_.path(".build-id/ab/cdef.debug"));
  EXPECT_TRUE(isFound());
  std::filesystem::remove(folder_.path(".build-id/ab/cdef.debug"));
  std::filesystem::create_symlink("/etc/passwd", folder_.path(".build-id/ab/cdef.debug"));
  EXPECT_FALSE(isFound());
  std::filesystem::remove(folder_.path(".build-id/ab/cdef.debug"));
  std::filesystem::create_symlink("../../../../etc/passwd",
                                  folder_.path(".build-id/ab/cdef.debug"));
  EXPECT_FALSE(isFound());
}

TEST_F(DebugFile, MustBeARegularFileOfTheFoldersOwner) {
  const std::string path = folder_.path(".build-id/ab/cdef.debug");
  ::chmod(path.c_str(), 0666);
  EXPECT_FALSE(isFound());
  ::chmod(path.c_str(), 0644);
  EXPECT_TRUE(isFound());
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(path.c_str(), kClient, kClient), 0);
    EXPECT_FALSE(isFound());
  }
  std::filesystem::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0644), 0);
  EXPECT_FALSE(isFound());
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_FALSE(isFound());
}

}  // namespace
}  // namespace hoist::sample
