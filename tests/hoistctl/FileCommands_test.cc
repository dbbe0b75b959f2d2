// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The commands about volumes and files, as a shell runs them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/RunProgram.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
namespace fs = std::filesystem;

ProgramResult hoistctl(std::vector<std::string> arguments) {
  return runProgram(HOIST_BUILD_DIR "/bin/hoistctl", arguments);
}

json hoistctlAsJSON(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "--json");
  auto result = hoistctl(arguments);
  auto answer = json::parse(result.output, nullptr, false);
  EXPECT_FALSE(answer.is_discarded()) << result.output;
  return answer;
}

class FileCommands : public testing::Test {
 protected:
  FileCommands() { ::chmod(folder_.path().c_str(), 0755); }
  TemporaryFolder folder_;
};

using Info = FileCommands;
using List = FileCommands;

TEST_F(Info, TellsAllAboutAFile) {
  auto path = folder_.write(".hidden file", "content");
  ::chmod(path.c_str(), 04711);
  timespec times[2] = {{1, 2}, {1'000'000'000, 123'456'789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  auto facts = hoistctlAsJSON({"info", path})[0];
  EXPECT_EQ(facts["path"], path);
  EXPECT_EQ(facts["name"], ".hidden file");
  EXPECT_EQ(facts["type"], "regular file");
  EXPECT_EQ(facts["size"], 7);
  EXPECT_EQ(facts["mode"], "4711");
  EXPECT_EQ(facts["ownerID"], ::geteuid());
  EXPECT_EQ(facts["links"], 1);
  EXPECT_EQ(facts["modified"], "2001-09-09T01:46:40.123456789Z");
  EXPECT_EQ(facts["hidden"], true);
  EXPECT_EQ(facts["excludedFromBackup"], false);
  EXPECT_EQ(facts["effectiveAccess"], "rwx");
  EXPECT_EQ(facts["accessList"], nullptr);
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(facts["fileID"], status.st_ino);
  auto volume = facts["volume"]["path"].get<std::string>();
  EXPECT_EQ(fs::path(volume) / facts["volume"]["relativePath"].get<std::string>(), path);
}

TEST_F(Info, TellsWhereALinkLeadsHoweverLongItIs) {
  auto target = std::string(3000, 't');
  fs::create_symlink(target, folder_ / "link");
  auto facts = hoistctlAsJSON({"info", folder_ / "link"})[0];
  EXPECT_EQ(facts["type"], "symbolic link");
  EXPECT_EQ(facts["target"], target);
}

TEST_F(Info, CountsAFoldersChildren) {
  folder_.write("sub/x", "");
  folder_.write("sub/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55");
  auto facts = hoistctlAsJSON({"info", folder_ / "sub"})[0];
  EXPECT_EQ(facts["type"], "directory");
  EXPECT_EQ(facts["count"], 2);
  EXPECT_EQ(facts["mountPoint"], false);
  EXPECT_EQ(facts["excludedFromBackup"], true);
}

TEST_F(Info, GoesOnAfterAPathThatLeadsNowhere) {
  auto path = folder_.write("x", "");
  auto result = hoistctl({"--json", "info", folder_ / "missing", path, ""});
  EXPECT_EQ(result.status, 1);
  auto facts = json::parse(result.output);
  EXPECT_EQ(facts[0]["error"], "there is nothing");
  EXPECT_EQ(facts[1]["name"], "x");
  EXPECT_TRUE(facts[2].contains("error"));
}

TEST_F(Info, SaysOnTheStandardErrorWhatTheSystemRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  auto path = folder_.write("closed/x", "");
  ::chmod((folder_ / "closed").c_str(), 0700);
  std::string command = "setpriv --reuid=20001 --regid=20001 --clear-groups " HOIST_BUILD_DIR
                        "/bin/hoistctl info " +
                        path;
  EXPECT_THAT(runProgram("/bin/sh", {"-c", command}).output,
              MatchesRegex("hoistctl: " + path + ": IO: .*: Permission denied\n"));
  EXPECT_EQ(runProgram("/bin/sh", {"-c", command + " 2>/dev/null"}).output, "");
}

TEST_F(Info, HasNoTimeOfCreationWhereNoneIsKept) {
  EXPECT_EQ(hoistctlAsJSON({"info", "/proc/self/status"})[0]["created"], nullptr);
  for (auto& volume : hoistctlAsJSON({"volumes", "--all"})) {
    if (volume["path"] == "/proc") {
      EXPECT_EQ(volume["created"], nullptr);
    }
  }
}

TEST_F(Info, TellsAFolderThatCannotBeReadFromAnEmptyOne) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  for (auto name : {"empty", "closed"}) fs::create_directory(folder_ / name);
  ::chmod((folder_ / "closed").c_str(), 0711);
  std::vector<std::string> arguments{
      "--reuid=65534", "--clear-groups",  HOIST_BUILD_DIR "/bin/hoistctl",
      "info",          folder_ / "empty", folder_ / "closed"};
  auto text = runProgram("/usr/bin/setpriv", arguments);
  EXPECT_EQ(text.status, 0);
  EXPECT_THAT(text.output, testing::ContainsRegex("count +0\n"));
  EXPECT_THAT(text.output, testing::ContainsRegex("count +unread\n"));
  arguments.insert(arguments.begin() + 3, "--json");
  auto facts = json::parse(runProgram("/usr/bin/setpriv", arguments).output);
  EXPECT_EQ(facts[0]["count"], 0);
  EXPECT_EQ(facts[1]["count"], nullptr);
}

TEST_F(Info, NamesAFolderThatIsGivenByDots) {
  fs::create_directories(folder_ / "outer/inner");
  fs::create_symlink("outer/inner", folder_ / "link");
  // The folder above the one that a link leads to is not the one that the link is in.
  auto result =
      runProgram("/usr/bin/env", {"--chdir=" + (folder_ / "outer"), HOIST_BUILD_DIR "/bin/hoistctl",
                                  "--json", "info", ".", "inner/..", folder_ / "link/.."});
  EXPECT_EQ(result.status, 0);
  for (auto& facts : json::parse(result.output)) {
    EXPECT_EQ(facts["path"], folder_ / "outer");
    EXPECT_EQ(facts["name"], "outer");
    EXPECT_EQ(facts["hidden"], false);
  }
}

TEST_F(Info, TakesPathsFromWhereItStandsAndShowsThemToPeople) {
  folder_.write("odd\n\xff", "");
  auto result =
      runProgram("/usr/bin/env", {"--chdir=" + folder_.path(), HOIST_BUILD_DIR "/bin/hoistctl",
                                  "info", "odd\n\xff", "./odd\n\xff"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("odd\\012"));
  EXPECT_THAT(result.output, HasSubstr("odd%0A%FF"));
  EXPECT_THAT(result.output, Not(HasSubstr("odd\n")));
}

TEST_F(List, IsInTheFileBrowsersOrder) {
  for (auto name : {"file 10", "File 9", "a", "B"}) folder_.write(name, "");
  EXPECT_EQ(hoistctl({"ls", folder_.path()}).output, "a\nB\nFile 9\nfile 10\n");
  auto list = hoistctlAsJSON({"ls", folder_.path()});
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(list[2]["name"], "File 9");
  EXPECT_EQ(list[2]["type"], "regular file");
}

TEST_F(List, ShowsTheDetailsWhenAsked) {
  ::chmod(folder_.write("tool", "12345").c_str(), 06750);
  fs::create_symlink("tool", folder_ / "link");
  fs::create_directory(folder_ / "sub");
  ::chmod((folder_ / "sub").c_str(), 01777);
  auto output = hoistctl({"ls", "-l", folder_.path()}).output;
  EXPECT_THAT(output, testing::ContainsRegex("-rwsr-s---  1  .*  5  [-0-9]+ [0-9:]+  tool\n"));
  EXPECT_THAT(output, testing::ContainsRegex("lrwxrwxrwx .* link -> tool\n"));
  EXPECT_THAT(output, testing::ContainsRegex("drwxrwxrwt .* -  .* sub\n"));
}

TEST_F(List, SaysWhenAFolderIsNoneOrCannotBeRead) {
  auto file = folder_.write("file", "");
  for (const std::string& path : {file, folder_ / "missing", std::string()}) {
    auto result = hoistctl({"ls", path});
    EXPECT_EQ(result.status, 1) << path;
    EXPECT_THAT(result.output, HasSubstr("no such folder"));
  }
  if (::geteuid() != 0) return;
  fs::create_directory(folder_ / "closed");
  ::chmod((folder_ / "closed").c_str(), 0711);
  auto result =
      runProgram("/usr/bin/setpriv", {"--reuid=65534", "--clear-groups",
                                      HOIST_BUILD_DIR "/bin/hoistctl", "ls", folder_ / "closed"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("the folder cannot be read"));
}

TEST_F(List, SaysWhichPathTheSystemRefusedAndWhy) {
  auto path = folder_ / std::string(300, 'x');
  EXPECT_THAT(hoistctl({"ls", path}).output,
              MatchesRegex("hoistctl: " + path + ": IO: .*: File name too long\n"));
}

TEST_F(List, ShowsWhatIsKnownOfItemsWhoseAttributesAreRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  folder_.write("sub/x", "");
  fs::create_directory(folder_ / "sub/y");
  ::chmod((folder_ / "sub").c_str(), 0744);
  auto result = runProgram(
      "/usr/bin/setpriv", {"--reuid=65534", "--clear-groups", HOIST_BUILD_DIR "/bin/hoistctl", "ls",
                           "-l", folder_ / "sub"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "-?????????  ?  ?  ?  ?  ?  x\n"
            "d?????????  ?  ?  ?  ?  ?  y\n");
}

TEST_F(List, GoesDownTheTreeWhenAsked) {
  folder_.write("10/file", "12");
  folder_.write("9/below/file", "1");
  auto top = folder_.path();
  EXPECT_EQ(hoistctl({"ls", "-R", top}).output, top + ":\n9\n10\n\n" + top + "/9:\nbelow\n\n" +
                                                    top + "/9/below:\nfile\n\n" + top +
                                                    "/10:\nfile\n");
  EXPECT_THAT(hoistctl({"ls", "-R", "-l", top}).output,
              MatchesRegex("(.|\n)*/9/below:\n-rw.* 1 .* file\n\n.*/10:\n-rw.* 2 .* file\n"));
  auto folders = hoistctlAsJSON({"ls", "-R", top});
  ASSERT_EQ(folders.size(), 4u);
  EXPECT_EQ(folders[3]["path"], top + "/10");
  EXPECT_EQ(folders[3]["url"], "file://" + top + "/10");
  EXPECT_EQ(folders[3]["items"][0]["size"], 2);
}

TEST_F(List, GoesOnBehindFoldersThatCannotBeRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to be an ordinary user";
  folder_.write("1/x", "");
  folder_.write("2/y", "");
  ::chmod((folder_ / "1").c_str(), 0700);
  std::vector<std::string> command = {
      "--reuid=65534", "--clear-groups", HOIST_BUILD_DIR "/bin/hoistctl", "ls", "-R",
      folder_.path()};
  auto result = runProgram("/usr/bin/setpriv", command);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output,
              HasSubstr("hoistctl: " + (folder_ / "1: the folder cannot be read\n")));
  EXPECT_THAT(result.output, HasSubstr(folder_ / "2:\ny\n"));
  command.push_back("--json");
  result = runProgram("/usr/bin/setpriv", command);
  EXPECT_EQ(result.status, 1);
  auto folders = json::parse(result.output, nullptr, false);
  ASSERT_EQ(folders.size(), 3u);
  EXPECT_EQ(folders[1]["error"], "the folder cannot be read");
  EXPECT_EQ(folders[2]["items"][0]["name"], "y");
}

TEST_F(List, FailsWhereThereIsNoFolderAnyMore) {
  fs::create_directory(folder_ / "gone");
  auto result = runProgram("/bin/sh", {"-c", "cd \"$1\" && rmdir \"$1\" && exec \"$0\" ls",
                                       HOIST_BUILD_DIR "/bin/hoistctl", folder_ / "gone"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("the current folder: No such file or directory"));
}

TEST_F(List, FailsWhenItsOutputCannotBeWritten) {
  folder_.write("x", "");
  for (const char* flag : {"--json", "-l"}) {
    auto result = runProgram("/bin/sh", {"-c", "exec \"$0\" ls $1 \"$2\" >/dev/full",
                                         HOIST_BUILD_DIR "/bin/hoistctl", flag, folder_.path()});
    EXPECT_EQ(result.status, 1) << flag;
    EXPECT_THAT(result.output, HasSubstr("the output could not be written")) << flag;
  }
}

TEST_F(List, FailsOnceWhenMuchOutputCannotBeWritten) {
  for (int i = 0; i < 2000; ++i) folder_.write(std::string(20, 'x') + std::to_string(i), "");
  for (const char* flag : {"--json", "-l"}) {
    auto result = runProgram("/bin/sh", {"-c", "exec \"$0\" ls $1 \"$2\" >/dev/full",
                                         HOIST_BUILD_DIR "/bin/hoistctl", flag, folder_.path()});
    EXPECT_EQ(result.status, 1) << flag;
    EXPECT_EQ(result.output, "hoistctl: the output could not be written\n") << flag;
  }
}

TEST_F(FileCommands, SayInOneLineWhatIsWrongWhateverTheyWereGiven) {
  const std::string hostile = "a\n\033[2J";
  const std::vector<std::vector<std::string>> kCases = {
      {"ls", hostile},
      {"status", "--service", hostile},
      {"status", hostile},
      {"launch", "-c", "capture", "/tmp", hostile}};
  for (const auto& arguments : kCases) {
    EXPECT_THAT(hoistctl(arguments).output, MatchesRegex("hoistctl: [^\033]*a\\\\012[^\n\033]*\n"));
  }
  EXPECT_EQ(hoistctlAsJSON({"ls", hostile})["error"], hostile + ": no such folder");
}

TEST_F(FileCommands, EndAsEverWhenNobodyReadsTheirErrors) {
  folder_.write("x", "");
  struct Case {
    const char* command;
    int status;
  };
  for (auto [command, status] : {Case{"ls missing", 1}, Case{"info missing", 1},
                                 Case{"nonsense", 2}, Case{"info x", 0}, Case{"status", 3}}) {
    for (const char* errors : {"2>/dev/full", "2>&-"}) {
      auto script = std::string("exec \"$0\" --service com.example.none ") + command +
                    " >/dev/null " + errors;
      auto result = runProgram("/usr/bin/env", {"--chdir=" + folder_.path(), "/bin/sh", "-c",
                                                script, HOIST_BUILD_DIR "/bin/hoistctl"});
      EXPECT_EQ(result.status, status) << script;
    }
  }
  auto nowhere = runProgram("/bin/sh", {"-c", "exec \"$0\" ls \"$1\" >/dev/full 2>/dev/full",
                                        HOIST_BUILD_DIR "/bin/hoistctl", folder_.path()});
  EXPECT_EQ(nowhere.status, 1);
}

TEST(Sample, SaysWhichProcessesThereCanBe) {
  for (const char* process : {"0", "-1", "x", "1.5", "2147483648"}) {
    auto result = hoistctl({"sample", "--", process});
    EXPECT_EQ(result.status, 2) << process;
    EXPECT_EQ(result.output, std::string("hoistctl: process: Value ") + process +
                                 " not in range 1 to 2147483647\n");
  }
}

TEST_F(List, FollowsALinkToAFolder) {
  folder_.write("sub/x", "");
  fs::create_symlink("sub", folder_ / "link");
  EXPECT_EQ(hoistctl({"ls", folder_ / "link"}).output, "x\n");
}

TEST(Volumes, AreListedWithSizesAndIdentity) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto point = volumes.make("ext4", "data");
  auto table = hoistctl({"volumes"});
  EXPECT_EQ(table.status, 0);
  EXPECT_THAT(table.output, testing::ContainsRegex("^Name +Type +Device +Size +Free +Available +"
                                                   "Identity +Mounted on\n"));
  EXPECT_THAT(table.output, testing::ContainsRegex("\nDATA +ext4 +/dev/loop[0-9]+ .* " + point));
  EXPECT_THAT(table.output, Not(HasSubstr("/proc\n")));
  EXPECT_THAT(hoistctl({"volumes", "--all"}).output, HasSubstr("/proc\n"));

  auto list = hoistctlAsJSON({"volumes"});
  auto volume = std::find_if(list.begin(), list.end(), [&](auto& v) { return v["path"] == point; });
  ASSERT_NE(volume, list.end());
  EXPECT_EQ((*volume)["name"], "DATA");
  EXPECT_EQ((*volume)["writable"], true);
  EXPECT_GT((*volume)["totalBytes"], 50'000'000);
  EXPECT_FALSE(volume->contains("capabilities"));
}

TEST(Volumes, ThatCannotBeListedAreAFailureWithTheSystemsReason) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  // Without the kernel's mount table.
  volumes.mount("tmpfs", "/proc", "tmpfs", 0, "");
  auto result = hoistctl({"volumes"});
  EXPECT_EQ(result.status, 1);
  // Sanitizers miss their files in /proc, too, and say so.
  EXPECT_THAT(
      result.output,
      HasSubstr("hoistctl: IO: cannot get count of mounted volumes: No such file or directory\n"));
}

TEST(Volumes, TellWhatTheyCanDoOnDemand) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto point = volumes.make("btrfs", "data");
  EXPECT_THAT(hoistctl({"volumes", "--capabilities"}).output,
              HasSubstr("\n" + point + "\n  hasPersistentObjects\n"));
  auto list = hoistctlAsJSON({"volumes", "-c"});
  auto volume = std::find_if(list.begin(), list.end(), [&](auto& v) { return v["path"] == point; });
  ASSERT_NE(volume, list.end());
  EXPECT_EQ((*volume)["capabilities"]["hasFileCloning"], true);
  EXPECT_EQ((*volume)["capabilities"]["hasExchangeData"], false);
  EXPECT_EQ((*volume)["capabilities"].size(), 32u);
}

}  // namespace
}  // namespace hoist
