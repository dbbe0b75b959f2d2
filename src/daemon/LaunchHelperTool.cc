// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The launch as a list of steps, each of which may raise. Whatever raises after the coupling was
// prepared abandons it, so that the next launch does not wait for a helper that will never call.

#include "daemon/LaunchHelperTool.h"

#include <elf.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "daemon/HelperHandshake.h"
#include "daemon/HelperRegistry.h"
#include "daemon/KLHelperGlue.h"
#include "exceptions/KLException.h"
#include "logging/Logger.h"
#include "platform/BackgroundPriority.h"
#include "platform/Clock.h"
#include "platform/SystemCall.h"
#include "platform/xpc/Limits.h"
#include "preferences/PXUserPreferences.h"
#include "values/product.h"

namespace hoist {
namespace {

constexpr const char* kBackgroundPreference = "KLRunActionsAsBackgroundProcess";

[[noreturn]] void raiseNotInstalled(const HelperLaunch& launch, const char* cause) {
  auto exception = KLException::exceptionWithName("Security", "helper not correctly installed");
  exception.setFileInfo(*launch.file);
  if (cause) exception.setCause(Value(cause));
  exception.raise();
}

// Only what the kernel itself loads: a script would have its interpreter read the file again, by
// name.
bool isNativeExecutable(const platform::SealedFile& file) {
#if __SIZEOF_POINTER__ == 8
  constexpr unsigned char kClass = ELFCLASS64;
#else
  constexpr unsigned char kClass = ELFCLASS32;
#endif
  std::array<unsigned char, EI_NIDENT> identity{};
  ssize_t got = retryInterrupted(
      [&] { return ::pread(file.descriptor(), identity.data(), identity.size(), 0); });
  return got == EI_NIDENT && std::memcmp(identity.data(), ELFMAG, SELFMAG) == 0 &&
         identity[EI_CLASS] == kClass;
}

void checkInstallation(const HelperLaunch& launch) {
  if (!HelperToolIsInstalledSafely(*launch.file, launch.owner, launch.requireSetUserID)) {
    raiseNotInstalled(launch, nullptr);
  }
  if (!isNativeExecutable(*launch.executable.bytes))
    raiseNotInstalled(launch, "not a native executable");
}

void checkText(const HelperLaunch& launch) {
  bool fits = fitsHandshakeLine(launch.commandName);
  for (const std::string& flag : launch.flags) fits = fits && fitsHandshakeLine(flag);
  if (fits) return;
  KLException::exceptionWithName("Security", "command cannot be passed to helper")
      .setFileInfo(*launch.file)
      .setCause(Value("a command name or flag holds a line feed or is not ASCII"))
      .raise();
}

HelperRegistry::Place takePlace(const HelperLaunch& launch) {
  auto place = HelperRegistry::shared().takePlace(launch.owner);
  if (!place) {
    KLException::exceptionWithName("Security", "too many helpers are running")
        .setFileInfo(*launch.file)
        .setCause(Value(
            fmt::format("user {} has {} running helpers", launch.owner, xpc::kHelpersOfOneUser)))
        .raise();
  }
  return place;
}

void shakeHandsWith(const HelperLaunch& launch, const std::string& serviceName, int input,
                    int output) {
  auto answer =
      shakeHands(input, output, handshakeLines(serviceName, launch.commandName, launch.flags),
                 Clock::instant() + kHandshakeLimit);
  if (answer.kind == HandshakeAnswer::Kind::Accepted) return;
  if (answer.kind == HandshakeAnswer::Kind::None) {
    KLException::exceptionWithName("Bug", "NULL response from helper").raise();
  }
  auto exception = KLException::exceptionWithName("Process", "helper did not start");
  exception.setDetail(Value(answer.response), "Response");
  if (answer.wrongVersion) {
    exception.setFlag(detail_key::WrongVersion)
        .setDetail(Value(product::kHelperVersion), "Version");
  }
  exception.raise();
}

bool runsInBackground() {
  return PXUserPreferences::sharedPreferences()->boolForKey(
      kBackgroundPreference, std::string(product::kHelperDomain), true);
}

void lowerPriority(const ChildTask& task) {
  pid_t process = task.processIdentifier();
  if (int failure = platform::setBackgroundPriority(process)) {
    Logger::log(classification::Debug, [&] {
      return fmt::format("unable to set helper process {} priority to {}, errno={}", process,
                         platform::kBackgroundBandPriority, failure);
    });
  }
}

// The pipes of one helper. Both of this side's ends live until the endpoint has come, so that a
// helper that still reads or writes is not ended by it.
struct HelperPipes {
  PipeEnds input = makePipe();
  PipeEnds output = makePipe();
};

Ref<ChildTask> startHelper(const HelperLaunch& launch,
                           const std::optional<std::string>& couplingService, HelperPipes& pipes) {
  ChildTaskOptions options{.launchPath = launch.file->cPath(),
                           .standardInput = pipes.input.reading.get(),
                           .standardOutput = pipes.output.writing.get(),
                           .executable = launch.executable.bytes->descriptor()};
  if (couplingService) options.environment = {{product::kParentServiceVariable, *couplingService}};
  if (launch.requireSetUserID) options.setUserIDOwner = launch.file->ownerID();
  auto task = ChildTask::launch(options);
  // From here on only the helper holds its ends, so that its end is the end of its output.
  pipes.input.reading.reset();
  pipes.output.writing.reset();
  return task;
}

void logFailure(const Exception& exception) {
  auto detailed = KLException::from(exception);
  bool wrongVersion = detailed && detailed->hasFlag(detail_key::WrongVersion);
  Logger::logMessageWithExceptionDetails(classification::Debug, nullptr,
                                         wrongVersion ? "Incompatible version of helper installed"
                                                      : "Helper tool could not be launched",
                                         &exception);
}

// Raises the exception that is being handled, a failed system call as one of the product's own.
[[noreturn]] void raiseFailure(const PXFileInfo& file) {
  try {
    throw;
  } catch (const SystemCallError& error) {
    auto exception = KLException::exceptionWithName("IO", "cannot start helper");
    exception.setPOSIXErr(error.number(), error.call()).setFileInfo(file);
    logFailure(exception);
    exception.raise();
  } catch (const Exception& exception) {
    logFailure(exception);
    throw;
  }
}

}  // namespace

bool HelperToolIsInstalledSafely(PXFileInfo& file, uid_t owner, bool requireSetUserID) {
  if (!file.exists() || !file.isRegularFile()) return false;
  auto mode = file.access();
  if (!(mode & S_IXUSR)) return false;
  if (owner != 0 && file.ownerID() != owner) return false;
  return !requireSetUserID || (mode & S_ISUID);
}

LaunchedHelper LaunchHelperTool(const HelperLaunch& launch) {
  auto& glue = KLHelperGlue::shared();
  std::optional<std::string> couplingService = glue.helperCouplingServiceName();
  LaunchedHelper helper;
  std::optional<std::string> startedService;
  // Kept until a failed coupling is abandoned.
  std::optional<CouplingTurns::Turn> turn;
  try {
    checkInstallation(launch);
    checkText(launch);
    auto place = takePlace(launch);
    HelperPipes pipes;
    helper.task = startHelper(launch, couplingService, pipes);
    HelperRegistry::shared().add(helper.task, std::move(place));
    helper.serviceName =
        fmt::format("helper.{}.{}", launch.commandName, helper.task->processIdentifier());
    startedService = helper.serviceName;
    if (couplingService) {
      turn.emplace(glue.turns().take(launch.owner));
      glue.prepareToConnectWithHelper(helper.serviceName);
    }
    shakeHandsWith(launch, helper.serviceName, pipes.input.writing.get(),
                   pipes.output.reading.get());
    helper.isInBackground = runsInBackground();
    if (helper.isInBackground) lowerPriority(*helper.task);
    if (couplingService) helper.endpoint = glue.endpointForLaunchedHelper(helper.serviceName);
    return helper;
  } catch (...) {
    if (couplingService) glue.abandonConnectionWithHelper(startedService);
    raiseFailure(*launch.file);
  }
}

}  // namespace hoist
