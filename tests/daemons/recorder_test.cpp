// The flight recorder's ring, and what is read of one that is not sound.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <zor/control_wire.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "programs/recorder/reader.h"
#include "programs/recorder/recorder.h"
#include "programs/recorder/saved.h"
#include "support/temp_root.h"

namespace zor::recorder {
namespace {

constexpr size_t kSlots = 1000;

std::span<const std::byte> BytesOf(const std::string &text) {
  return std::as_bytes(std::span(text));
}

// Of a message of that type and so many bytes of body.
std::string FrameOf(uint32_t type, size_t bodyLength) {
  ZOR_MSG_HEAD head{};
  head.type = type;
  head.bodyLength = static_cast<uint32_t>(bodyLength);
  return std::string(reinterpret_cast<const char *>(&head), sizeof head) + std::string(bodyLength, 'b');
}

void Record(Recorder &recorder, uint32_t first, uint32_t last) {
  for (uint32_t number = first; number <= last; ++number) {
    recorder.Add(BytesOf(FrameOf(number, number % 200)), {"to"}, number % 2, number);
  }
}

Recording Read(const std::string &bytes) {
  std::string problem;
  const auto recording = ReadRecording(BytesOf(bytes), problem);
  EXPECT_TRUE(recording) << problem;
  return recording.value_or(Recording());
}

// That it has the frames with these numbers, which Record made.
void Expect(const Recording &recording, uint64_t first, uint64_t last) {
  ASSERT_EQ(recording.slots.size(), last - first + 1);
  for (const Slot &slot : recording.slots) {
    ASSERT_EQ(slot.number, first++);
    const std::string copy = CopyOf(slot, 5, 0),
                      frame = FrameOf(static_cast<uint32_t>(slot.number), static_cast<size_t>(slot.number % 200));
    ZOR_CONTROL_COPY head;
    std::memcpy(&head, copy.data(), sizeof head);
    ASSERT_EQ(head.timeUs, slot.number + 5);
    ASSERT_EQ(head.outcome, slot.number % 2);
    ASSERT_EQ(head.frameSize, frame.size());
    ASSERT_STREQ(head.receiver, "to");
    ASSERT_EQ(copy.substr(sizeof head), frame.substr(0, ZOR_MSG_HEAD_SIZE + kBodyBytes));
  }
}

TEST(Recorder, HasTheLatestFramesInTheirOrder) {
  Recorder recorder;
  EXPECT_TRUE(Read(recorder.Content()).slots.empty()) << "when it is off";
  ASSERT_TRUE(recorder.Start(kSlots, {}));
  struct stat before, after;
  ASSERT_EQ(::fstat(recorder.fd(), &before), 0);
  for (const uint32_t last : {1u, 120u, 121u, 240u, 241u, 999u, 1000u, 1001u, 2500u}) {
    Record(recorder, last == 1 ? 1 : static_cast<uint32_t>(Read(recorder.Content()).slots.back().number) + 1, last);
    const uint64_t first = last > kSlots ? last - kSlots + 1 : 1;
    Expect(Read(recorder.Content()), first, last);
    std::string problem;
    Expect(*ReadRecording(recorder.fd(), problem), first, last);
  }
  ASSERT_EQ(::fstat(recorder.fd(), &after), 0);
  EXPECT_LT(before.st_blocks * 8, after.st_blocks) << "memory is taken as it is used";
  // A successor with less room goes on counting.
  Recorder successor;
  ASSERT_TRUE(successor.Start(300, Read(recorder.Content())));
  Record(successor, 2501, 2600);
  Expect(Read(successor.Content()), 2301, 2600);
}

TEST(Recorder, IsReadAsFarAsItIsSound) {
  Recorder recorder;
  ASSERT_TRUE(recorder.Start(kSlots, {}));
  Record(recorder, 1, 20);
  const std::string sound = recorder.Content();
  const auto put = [](std::string &bytes, size_t offset, auto value) {
    std::memcpy(&bytes[sizeof(Head) + 3 * sizeof(Slot) + offset], &value, sizeof value);
  };
  const struct {
    const char *what;
    std::function<void(std::string &)> spoil;
    size_t frames, damaged;
  } cases[] = {
      {"cut within a slot", [](auto &bytes) { bytes.resize(bytes.size() - 1); }, 19, 1},
      {"a number beyond all", [&](auto &bytes) { put(bytes, offsetof(Slot, number), uint64_t{0xff00000000000004}); },
       19, 1},
      {"a number twice", [&](auto &bytes) { put(bytes, offsetof(Slot, number), uint64_t{3}); }, 19, 1},
      {"being written", [&](auto &bytes) { put(bytes, offsetof(Slot, number), uint64_t{0}); }, 19, 0},
      {"an endless name",
       [&](auto &bytes) {
         put(bytes, offsetof(Slot, receiver), std::array{'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'});
       },
       19, 1},
      {"no outcome", [&](auto &bytes) { put(bytes, offsetof(Slot, outcome), uint16_t{2}); }, 19, 1},
      {"more bytes than there are", [&](auto &bytes) { put(bytes, offsetof(Slot, bytes), uint16_t{127}); }, 19, 1},
      {"less than a head", [&](auto &bytes) { put(bytes, offsetof(Slot, bytes), uint16_t{39}); }, 19, 1},
      {"more bytes than its body", [&](auto &bytes) { put(bytes, offsetof(Slot, bytes), uint16_t{50}); }, 19, 1},
  };
  for (const auto &[what, spoil, frames, damaged] : cases) {
    std::string bytes = sound;
    spoil(bytes);
    const Recording recording = Read(bytes);
    EXPECT_EQ(recording.slots.size(), frames) << what;
    EXPECT_EQ(recording.damaged, damaged) << what;
  }
  for (const std::string &bytes : {std::string(), sound.substr(0, 63), "x" + sound,
                                   sound.substr(0, 8) + std::string(56, 'x'), sound + std::string(kMostBytes, '\0')}) {
    std::string problem;
    EXPECT_FALSE(ReadRecording(BytesOf(bytes), problem));
    EXPECT_FALSE(problem.empty());
  }
  std::string problem, foreign = sound;
  std::reverse(foreign.begin(), foreign.begin() + 8);
  EXPECT_FALSE(ReadRecording(BytesOf(foreign), problem));
  EXPECT_EQ(problem, "it was recorded on a machine of the other byte order");
}

TEST(Recorder, SavesTheLatestFirstAndKeepsWhatIsThereWhenTheDiskIsFull) {
  Recorder recorder;
  ASSERT_TRUE(recorder.Start(kSlots, {}));
  const test::TempRoot root;
  const std::string directory = root.Path("/saved"), path = directory + "/recorder";
  ASSERT_TRUE(std::filesystem::create_directory(directory));
  const auto numberIn = [&](int place) {
    const std::string file = SavedFile(path, place);
    return std::filesystem::exists(file) ? Read(test::ContentOf(file)).slots.back().number : 0;
  };
  const auto expect = [&](std::initializer_list<uint64_t> numbers) {
    int place = 0;
    for (const uint64_t number : numbers) EXPECT_EQ(numberIn(++place), number) << place;
  };
  for (uint32_t number = 1; number <= 4; ++number) {
    Record(recorder, number, number);
    ASSERT_TRUE(SaveRecording(Read(recorder.Content()), path, 3));
  }
  expect({4, 3, 2, 0});
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{300, 300};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_FALSE(SaveRecording(Read(recorder.Content()), path, 3));
  expect({4, 3, 2, 0});
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 3);
}

}  // namespace
}  // namespace zor::recorder
