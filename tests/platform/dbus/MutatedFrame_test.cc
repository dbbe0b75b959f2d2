// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Frames of real programs, and very many that are almost such frames.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "CopyValues.h"
#include "RecordedFrames.h"
#include "platform/dbus/FrameReader.h"

namespace hoist::dbus {
namespace {

// How many descriptors the frame announces, whatever else is wrong with it.
std::size_t announcedBy(const Bytes& frame) {
  for (std::size_t count = 0; count <= 16; ++count) {
    try {
      return Message::parse(frame, someFiles(count)).fileDescriptorCount();
    } catch (const ProtocolError&) {
    }
  }
  return 0;
}

TEST(RecordedFrame, IsTakenAndWrittenAnewWithTheSameValues) {
  ASSERT_GE(recordedFrames().size(), 20u);
  for (const auto& [name, frame] : recordedFrames()) {
    Message original = Message::parse(frame, someFiles(announcedBy(frame)));
    EXPECT_EQ(original.swapped(), frame[0] == 'B') << name;
    OutgoingMessage once = rewritten(original);
    Message copy = Message::parse(once.bytes, std::move(once.descriptors));
    EXPECT_EQ(copy.header().path, original.header().path);
    EXPECT_EQ(copy.signature(), original.signature());
    // Our own order and our own order of fields: from here on nothing changes any more.
    OutgoingMessage twice = rewritten(copy);
    EXPECT_EQ(twice.bytes, once.bytes) << name;
    EXPECT_FALSE(copy.swapped());
  }
}

TEST(RecordedFrame, InOurByteOrderHasTheVeryBytesThatWeWrite) {
  int compared = 0;
  for (const auto& [name, frame] : recordedFrames()) {
    Message original = Message::parse(frame, someFiles(announcedBy(frame)));
    if (original.swapped()) continue;
    ++compared;
    std::size_t bodyOffset = original.bodyOffset();
    OutgoingMessage ours = rewritten(original);
    Message copy = Message::parse(ours.bytes, std::move(ours.descriptors));
    EXPECT_TRUE(std::ranges::equal(std::span(frame).subspan(bodyOffset),
                                   std::span(ours.bytes).subspan(copy.bodyOffset())))
        << name;
  }
  EXPECT_GE(compared, 10);
}

// Changes a few places of a frame, mostly in ways that leave much of it right.
class Mutator {
 public:
  explicit Mutator(std::uint64_t seed) : random_(seed) {}

  std::size_t upTo(std::size_t bound) { return static_cast<std::size_t>(random_() % bound); }

  void mutate(Bytes& frame) {
    for (std::size_t changes = 1 + upTo(3); changes > 0; --changes) change(frame);
  }

 private:
  void change(Bytes& frame) {
    static constexpr std::uint8_t kTelling[] = {0,   1,   2,   3,   4,   7,   8,   9,   16,  64,
                                                127, 128, 254, 255, 'a', '(', ')', '{', '}', 'v',
                                                's', 'o', 'g', 'h', 'y', 'i', 'x', 'l', 'B', '/'};
    std::size_t place = upTo(frame.size());
    switch (upTo(6)) {
      case 0:
        frame[place] = static_cast<std::uint8_t>(random_());
        break;
      case 1:
        frame[place] ^= static_cast<std::uint8_t>(1u << upTo(8));
        break;
      case 2:
        frame[place] = kTelling[upTo(std::size(kTelling))];
        break;
      case 3:
        std::swap(frame[place], frame[upTo(frame.size())]);
        break;
      case 4:
        frame[place] += upTo(2) ? 1 : 255;
        break;
      case 5: {  // one stretch over another
        std::size_t size = std::min(1 + upTo(16), frame.size() - place);
        std::size_t from = upTo(frame.size() - size + 1);
        std::copy_n(Bytes(frame).begin() + static_cast<std::ptrdiff_t>(from), size,
                    frame.begin() + static_cast<std::ptrdiff_t>(place));
      }
    }
  }

  std::mt19937_64 random_;
};

#ifdef HOIST_SANITIZED
constexpr int kFrames = 100'000;
#else
constexpr int kFrames = 1'000'000;
#endif

TEST(MutatedFrame, IsRefusedOrReadInFull) {
  Mutator mutator(20240305);
  int taken = 0;
  for (int round = 0; round < kFrames; ++round) {
    Bytes frame = recordedFrames()[mutator.upTo(recordedFrames().size())].frame;
    mutator.mutate(frame);
    try {
      FrameReader reader;
      std::optional<Message> message;
      if (round % 16 == 0) {
        std::size_t cut = mutator.upTo(frame.size());
        reader.append(std::span(frame).first(cut));
        message = reader.next();
        reader.append(std::span(frame).subspan(cut));
        if (!message) message = reader.next();
        if (!message) continue;
      } else {
        message = Message::parse(frame);
      }
      ++taken;
      // Whatever is taken can be read to its end and written anew. Unknown types need no header
      // that we would write.
      if (message->type() > MessageType::kSignal) continue;
      OutgoingMessage copy = rewritten(*message);
      EXPECT_EQ(Message::parse(std::move(copy.bytes)).signature(), message->signature());
    } catch (const ProtocolError&) {
    }
  }
  EXPECT_GT(taken, kFrames / 100);
  EXPECT_LT(taken, kFrames / 100 * 99);
}

// libdbus, loaded by name: a judge of frames, not something that we are built with.
class Libdbus {
 public:
  Libdbus() {
    void* library = dlopen("libdbus-1.so.3", RTLD_NOW);
    if (!library) return;
    demarshal_ = reinterpret_cast<Demarshal>(dlsym(library, "dbus_message_demarshal"));
    unref_ = reinterpret_cast<Unref>(dlsym(library, "dbus_message_unref"));
  }
  bool isThere() const { return demarshal_ && unref_; }
  bool accepts(const Bytes& frame) const {
    void* message = demarshal_(reinterpret_cast<const char*>(frame.data()),
                               static_cast<int>(frame.size()), nullptr);
    if (message) unref_(message);
    return message != nullptr;
  }

 private:
  using Demarshal = void* (*)(const char*, int, void*);
  using Unref = void (*)(void*);
  Demarshal demarshal_ = nullptr;
  Unref unref_ = nullptr;
};

std::string complaintAbout(const Bytes& frame) {
  try {
    Message::parse(frame);
    return "";
  } catch (const ProtocolError& error) {
    return error.what();
  }
}

// Whether a header field may have the code 10, which libdbus alone gives a meaning and a type.
bool mayHaveFieldTen(const Bytes& frame) {
  for (std::size_t place = 16; place < frame.size(); place += 8) {
    if (frame[place] == 10) return true;
  }
  return false;
}

std::string hexadecimal(const Bytes& frame) {
  std::string text;
  for (std::uint8_t byte : frame) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

TEST(MutatedFrame, IsJudgedAsLibdbusJudgesIt) {
  Libdbus libdbus;
  ASSERT_TRUE(libdbus.isThere());
  Mutator mutator(77);
  int agreed[2] = {};
  for (int round = 0; round < 200'000; ++round) {
    Bytes frame = recordedFrames()[mutator.upTo(recordedFrames().size())].frame;
    mutator.mutate(frame);
    std::string complaint = complaintAbout(frame);
    // libdbus leaves these two to whoever reads the message.
    if (complaint.find("descriptor") != std::string::npos) continue;
    if (complaint == "a message is not as long as it says") continue;
    if (mayHaveFieldTen(frame)) continue;
    bool accepted = libdbus.accepts(frame);
    ASSERT_EQ(accepted, complaint.empty()) << complaint << "\n" << hexadecimal(frame);
    ++agreed[accepted];
  }
  EXPECT_GT(agreed[0], 10'000);
  EXPECT_GT(agreed[1], 2'000);
}

}  // namespace
}  // namespace hoist::dbus
