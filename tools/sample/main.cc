// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// sample: takes samples of the call stacks of a process and writes a report of them.
#include <fmt/format.h>
#include <sys/prctl.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>

#include "sample/Flames.h"
#include "sample/Options.h"
#include "sample/OutputFile.h"
#include "sample/Report.h"
#include "sample/Rights.h"
#include "sample/Sampler.h"
#include "sample/TargetProcess.h"
#include "sample/Watchdog.h"

namespace {

using namespace hoist::sample;

// Beyond the sampling itself: reading symbols and writing.
constexpr std::chrono::seconds kTimeForTheReport{30};

void run(const Options& options) {
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);  // nobody looks into the sampler
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  blockSignals();
  OutputFile report =
      options.reportPath ? OutputFile::open(*options.reportPath) : OutputFile::standardOutput();
  std::optional<OutputFile> picture;
  if (options.flameGraphPath) picture.emplace(OutputFile::open(*options.flameGraphPath));
  if (picture && picture->isSameFileAs(report))
    throw UsageError("report and flame graph cannot be one file");
  limitResources(options.duration);
  startWatchdog(options.duration + kTimeForTheReport);

  const TargetProcess process = TargetProcess::open(options.processID);
  const Sampling sampling =
      sampleProcess(process, {.duration = options.duration, .interval = options.interval});
  report.replaceContents(reportText(sampling));
  if (picture) picture->replaceContents(hoist::flamegraph::picture(flameGraph(sampling)));
}

// The status says it too, where nobody can be told: nothing may be thrown here.
int fail(int status, std::string_view reason) {
  std::fputs(fmt::format("sample: {}\n", reason).c_str(), stderr);
  return status;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    run(parseOptions(count, arguments));
    return 0;
  } catch (const HelpWanted&) {
    std::puts(usageText());
    return 0;
  } catch (const UsageError& error) {
    return fail(2, fmt::format("{} ({})", error.what(), usageText()));
  } catch (const std::bad_alloc&) {
    return fail(1, "no report: the memory limit was reached");
  } catch (const std::exception& error) {
    return fail(1, error.what());
  }
}
