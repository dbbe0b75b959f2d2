// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// Two ways lead through a stack. The quick one follows rules that were worked out once for each
// place in the code; it serves nearly every frame that a compiler makes. Where it does not know on
// (signal handlers, stubs of the dynamic linker, realigned stacks, code without tables) libdwfl
// goes on from that frame. Both read the copy of the stack; only what lies beyond the copy is read
// from the live target, where older frames seldom change.
#include "sample/Unwinder.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "sample/ImageMap.h"
#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

// A program that runs code which belongs to no known image (one that compiles as it goes) must not
// make its memory map be read for every sample.
constexpr auto kBetweenLooks = std::chrono::milliseconds(250);
constexpr std::uint32_t kLeastCopy = 4 * 1024;
constexpr std::uint32_t kMostCopy = 256 * 1024;

}  // namespace

// The stack as it was when the capture was taken.
class Unwinder::StackReader {
 public:
  explicit StackReader(const TargetProcess& process) : process_(process) {}

  void begin(const Capture& capture) {
    capture_ = &capture;
    beyond_ = false;
  }
  const Capture& capture() const { return *capture_; }
  bool wentBeyond() const { return beyond_; }

  bool read(Address address, std::uint64_t& value) {
    const Address offset = address - capture_->registers.stackPointer();
    if (offset < capture_->stack.size() && capture_->stack.size() - offset >= sizeof value) {
      std::memcpy(&value, capture_->stack.data() + offset, sizeof value);
      return true;
    }
    beyond_ = true;
    return process_.readMemory(address, std::as_writable_bytes(std::span(&value, 1))) ==
           sizeof value;
  }

 private:
  const TargetProcess& process_;
  const Capture* capture_ = nullptr;
  bool beyond_ = false;
};

// What libdwfl asks while it unwinds; the argument is the unwinder.
struct Unwinder::Callbacks {
  static pid_t nextThread(Dwfl*, void* unwinder, void** thread) noexcept {
    if (*thread != nullptr) return 0;
    *thread = unwinder;
    return static_cast<Unwinder*>(unwinder)->reader_->capture().thread->id;
  }
  static bool getThread(Dwfl*, pid_t, void* unwinder, void** thread) noexcept {
    *thread = unwinder;
    return true;
  }
  static bool readMemory(Dwfl*, Dwarf_Addr address, Dwarf_Word* value, void* unwinder) noexcept {
    std::uint64_t word = 0;
    if (!static_cast<Unwinder*>(unwinder)->reader_->read(address, word)) return false;
    *value = word;
    return true;
  }
  static bool setRegisters(Dwfl_Thread* thread, void* unwinder) noexcept {
    const Unwinder& self = *static_cast<Unwinder*>(unwinder);
    Dwarf_Word words[Registers::kCount];
    std::copy(self.registers_.value.begin(), self.registers_.value.end(), words);
    words[Registers::kReturnAddress] = self.frames_.back().address;
    if (self.frames_.size() == 1) {
      return ::dwfl_thread_state_registers(thread, 0, Registers::kCount, words);
    }
    // A caller knows only what its callees must give back, the stack and where it is.
    return ::dwfl_thread_state_registers(thread, 3, 1, words + 3) &&
           ::dwfl_thread_state_registers(thread, 6, 2, words + 6) &&
           ::dwfl_thread_state_registers(thread, 12, 5, words + 12);
  }
  static int takeFrame(Dwfl_Frame* frame, void* unwinder) noexcept {
    Dwarf_Addr address = 0;
    bool isExact = false;
    if (!::dwfl_frame_pc(frame, &address, &isExact)) return DWARF_CB_ABORT;
    Unwinder& self = *static_cast<Unwinder*>(unwinder);
    // The first one is where the rules ended, and is there already.
    if (std::exchange(self.isFirst_, false)) return DWARF_CB_OK;
    try {
      return self.addFrame(address, !isExact) ? DWARF_CB_OK : DWARF_CB_ABORT;
    } catch (const std::exception&) {
      return DWARF_CB_ABORT;
    }
  }
  static constexpr Dwfl_Thread_Callbacks kTable = {nextThread,   getThread, readMemory,
                                                   setRegisters, nullptr,   nullptr};
};

Unwinder::Unwinder(const TargetProcess& process, ImageMap& images)
    : process_(process),
      images_(images),
      session_(::dwfl_begin(&kImageCallbacks), ::dwfl_end),
      reader_(std::make_unique<StackReader>(process)) {
  if (session_) reportImages();
}

Unwinder::~Unwinder() = default;

void Unwinder::reportImages() {
  // Reporting anew drops what has gone and keeps what is reported again.
  ::dwfl_report_begin(session_.get());
  for (Image* image : images_.loaded()) reportImage(session_.get(), *image);
  ::dwfl_report_end(session_.get(), nullptr, nullptr);
  if (!attached_) {
    attached_ =
        ::dwfl_attach_state(session_.get(), nullptr, process_.id(), &Callbacks::kTable, this);
  }
}

const std::vector<Frame>& Unwinder::unwind(const Capture& capture) {
  reader_->begin(capture);
  if (images_.at(capture.registers.programCounter()) == nullptr) lookAtImagesAgain();
  registers_ = capture.registers;
  if (!unwindByRules() && attached_) {
    isFirst_ = true;
    ::dwfl_getthread_frames(session_.get(), capture.thread->id, Callbacks::takeFrame, this);
  }
  adaptCopy(capture);
  return frames_;
}

// True if the stack is complete, or nobody could go on with it.
bool Unwinder::unwindByRules() {
  frames_.clear();
  auto read = [this](Address address, std::uint64_t& value) {
    return reader_->read(address, value);
  };
  for (bool isCaller = false;; isCaller = true) {
    const Address before = registers_.stackPointer();
    if (!addFrame(registers_.programCounter(), isCaller)) return true;
    const FrameRule* rule = ruleAt(frames_.back().address);
    if (rule == nullptr) return false;
    if (rule->isOutermost() || !rule->step(registers_, read)) return true;
    if (registers_.programCounter() == 0 || registers_.stackPointer() <= before) return true;
  }
}

// False when the stack is as deep as is kept.
bool Unwinder::addFrame(Address programCounter, bool isCallersFrame) {
  // The call may be the last instruction of its function: the address after it belongs to the next.
  const Address address = programCounter - (isCallersFrame ? 1 : 0);
  frames_.push_back({address, images_.at(address)});
  return frames_.size() < kMostFrames;
}

const FrameRule* Unwinder::ruleAt(Address address) {
  auto [found, isNew] = rules_.try_emplace(address);
  if (isNew) found->second = makeRule(address);
  return found->second ? &*found->second : nullptr;
}

std::optional<FrameRule> Unwinder::makeRule(Address address) {
  Dwfl_Module* module = session_ ? ::dwfl_addrmodule(session_.get(), address) : nullptr;
  if (module == nullptr) return std::nullopt;
  Dwarf_Addr bias = 0;
  Dwarf_CFI* information = ::dwfl_module_eh_cfi(module, &bias);
  return information == nullptr ? std::nullopt : FrameRule::at(information, address - bias);
}

void Unwinder::lookAtImagesAgain() {
  const auto now = std::chrono::steady_clock::now();
  if (now - lookedAt_ < kBetweenLooks) return;
  lookedAt_ = now;
  if (!images_.refresh() || !session_) return;
  rules_.clear();
  reportImages();
}

// The next capture of the thread copies as much as this stack needed, and some more.
void Unwinder::adaptCopy(const Capture& capture) const {
  const Address depth = registers_.stackPointer() - capture.registers.stackPointer();
  Address wanted =
      std::max<Address>(kLeastCopy, (depth + 2 * kLeastCopy - 1) & -Address{kLeastCopy});
  if (reader_->wentBeyond()) wanted = std::max<Address>(wanted, capture.stack.size() * 2);
  capture.thread->stackBytes.store(static_cast<std::uint32_t>(std::min<Address>(wanted, kMostCopy)),
                                   std::memory_order_relaxed);
}

}  // namespace hoist::sample
