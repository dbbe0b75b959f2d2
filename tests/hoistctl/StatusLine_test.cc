// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What is written over again on the standard error, on terminals of several widths.

#include "hoistctl/StatusLine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "hoistctl/ProgressBar.h"
#include "platform/FileDescriptor.h"

namespace hoist::ctl {
namespace {

// The standard error is a terminal of its own while one lives.
class Terminal {
 public:
  explicit Terminal(unsigned short columns)
      : screen_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)),
        before_(FileDescriptor::duplicate(STDERR_FILENO)) {
    EXPECT_EQ(::grantpt(screen_.get()), 0);
    EXPECT_EQ(::unlockpt(screen_.get()), 0);
    FileDescriptor line(::open(::ptsname(screen_.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    EXPECT_EQ(::ioctl(line.get(), TIOCSWINSZ, &size), 0);
    EXPECT_EQ(::dup2(line.get(), STDERR_FILENO), STDERR_FILENO);
  }
  ~Terminal() { ::dup2(before_.get(), STDERR_FILENO); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // What has been written, behind the code that goes back to the line's beginning.
  std::string line() const {
    std::string text(4096, '\0');
    auto got = ::read(screen_.get(), text.data(), text.size());
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    const std::string start = "\r\033[K";
    EXPECT_TRUE(text.starts_with(start)) << text;
    return text.substr(start.size());
  }

 private:
  FileDescriptor screen_;
  FileDescriptor before_;
};

std::size_t charactersOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

TEST(StatusLine, StaysOnOneLineOfANarrowTerminal) {
  for (unsigned short columns : {1, 2, 3, 4, 20}) {
    Terminal terminal(columns);
    StatusLine status(false);
    status.show("running", std::string(200, 'x'));
    EXPECT_LE(charactersOf(terminal.line()), columns);
  }
}

TEST(StatusLine, UsesTheWidthThatThereIs) {
  Terminal terminal(60);
  StatusLine status(false);
  status.show("running", std::string(200, 'x'));
  EXPECT_GT(charactersOf(terminal.line()), 55u);
}

TEST(ProgressBar, StaysOnOneLineOfANarrowTerminal) {
  for (unsigned short columns : {1, 2, 20}) {
    Terminal terminal(columns);
    ProgressBar bar(false);
    bar.show("sampling one process " + progressText(5, 10));
    EXPECT_LE(terminal.line().size(), columns);
  }
}

TEST(ProgressBar, IsWholeOnAWideOne) {
  Terminal terminal(80);
  ProgressBar bar(false);
  bar.show(progressText(5, 10));
  EXPECT_EQ(terminal.line(), progressText(5, 10));
}

}  // namespace
}  // namespace hoist::ctl
