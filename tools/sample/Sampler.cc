// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// Two threads: the tracer holds the target's threads and never does anything that could take long;
// the calling thread unwinds what the tracer captured and reads the files that this needs. Files
// are opened before the tracer attaches, so that everything that needs rights is over by then.
#include "sample/Sampler.h"

#include <signal.h>

#include <future>
#include <map>
#include <optional>
#include <thread>

#include "sample/CaptureQueue.h"
#include "sample/ImageMap.h"
#include "sample/PrintableText.h"
#include "sample/Rights.h"
#include "sample/TargetProcess.h"
#include "sample/Unwinder.h"

namespace hoist::sample {
namespace {

// The stacks of one thread while they come in.
struct Stacks {
  StackTree tree;
  StackTree::Node last = StackTree::kRoot;
  std::uint64_t outOfReach = 0;
};
using StacksByThread = std::map<const SampledThread*, Stacks>;

void add(Stacks& stacks, const Capture& capture, Unwinder& unwinder) {
  switch (capture.kind) {
    case Capture::Kind::Stack:
      stacks.last = stacks.tree.add(unwinder.unwind(capture), capture.weight);
      break;
    case Capture::Kind::SameAsBefore:
      stacks.tree.addAgain(stacks.last, capture.weight);
      break;
    case Capture::Kind::OutOfReach:
      stacks.outOfReach += capture.weight;
      break;
  }
}

// The tracer on a thread of its own, from before it attaches until it has let go.
class TracerThread {
 public:
  TracerThread(const TargetProcess& process, const SamplerSettings& settings) {
    std::promise<void> attached;
    attached_ = attached.get_future();
    std::packaged_task<TraceResult()> task(
        [this, &process, settings, attached = std::move(attached)]() mutable {
          return trace(process, settings, attached);
        });
    result_ = task.get_future();
    thread_ = std::jthread(std::move(task));
  }

  // Throws Refusal.
  void waitUntilAttached() { attached_.get(); }
  std::optional<Capture> nextCapture() { return queue_.take(); }
  // After the last capture.
  TraceResult result() {
    thread_.join();
    return result_.get();
  }

 private:
  TraceResult trace(const TargetProcess& process, const SamplerSettings& settings,
                    std::promise<void>& attached) {
    struct Closer {
      CaptureQueue& queue;
      ~Closer() { queue.close(); }
    } closer{queue_};
    Tracer tracer(process, queue_, settings.interval);
    try {
      tracer.attach();
      if (settings.dropsRights) dropRights();
    } catch (...) {
      attached.set_exception(std::current_exception());
      return {};
    }
    attached.set_value();
    return tracer.run(settings.duration);
  }

  CaptureQueue queue_;
  std::future<void> attached_;
  std::future<TraceResult> result_;
  std::jthread thread_;
};

Sampling describe(const TargetProcess& process, const SamplerSettings& settings,
                  const TraceResult& trace) {
  Sampling sampling;
  sampling.process = process.id();
  sampling.parent = process.parent();
  sampling.name = printableText(process.name());
  sampling.path = printableText(process.path());
  sampling.started = process.started();
  sampling.wishedInterval = settings.interval;
  sampling.sampled = trace.sampled;
  sampling.samples = trace.samples;
  sampling.end = trace.end;
  sampling.followedAllThreads = trace.followedAll;
  return sampling;
}

}  // namespace

void blockSignals() {
  // The daemon's parent may have chosen to ignore its children; then no stop would be told of.
  ::signal(SIGCHLD, SIG_DFL);
  sigset_t set;
  ::sigemptyset(&set);
  for (int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&set, signal);
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

Sampling sampleProcess(const TargetProcess& process, const SamplerSettings& settings) {
  ImageMap images(process, settings.debugFolder);
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);

  TracerThread tracer(process, settings);
  tracer.waitUntilAttached();
  if (settings.dropsRights) dropRights();

  StacksByThread stacks;
  Unwinder unwinder(process, images);
  while (auto capture = tracer.nextCapture()) {
    add(stacks[capture->thread.get()], *capture, unwinder);
  }
  const TraceResult trace = tracer.result();

  Sampling sampling = describe(process, settings, trace);
  sampling.date = Date::fromTimeSpec(now);
  for (const auto& thread : trace.threads) {
    auto found = stacks.find(thread.get());
    if (found == stacks.end()) continue;
    sampling.threads.push_back(
        {thread->id, printableText(thread->name),
         CallGraph(found->second.tree, *sampling.functions, found->second.outOfReach)});
  }
  for (const auto& image : images.all()) {
    sampling.images.push_back({image->range(), image->name(), image->buildID(), image->path()});
  }
  return sampling;
}

}  // namespace hoist::sample
