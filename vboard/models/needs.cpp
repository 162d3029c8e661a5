// Which devices stand in the way of picture, sound and stream, and the verdict.
#include "vboard/models/needs.h"

#include <algorithm>
#include <atomic>
#include <initializer_list>

namespace vboard {

namespace {

using Parts = std::initializer_list<const Part*>;

bool all_work(const Board& board, const Parts& parts) {
  return std::ranges::all_of(parts, [&board](const Part* part) { return works(board, *part); });
}

// What delivers pictures, by what is plugged in.
bool front_end_works(const Board& board) {
  switch (board.world.video) {
    case VideoSource::kComponent:
    case VideoSource::kVga:
      return all_work(board, {&kTvp7002Sync, &kTvp7002Picture, &kFpgaPicture});
    case VideoSource::kComposite:
      return all_work(board, {&kTvp5150Lock, &kTvp5150Picture, &kFpgaPicture});
    case VideoSource::kNone:
      break;
  }
  return false;
}

bool sound_arrives(const Board& board) {
  switch (board.world.audio) {
    case AudioSource::kDigital:
      return all_work(board, {&kDix4192Lock, &kDix4192Output});
    case AudioSource::kDsp:
      return works(board, kAc3DspPart);
    case AudioSource::kNone:
      break;
  }
  return false;
}

void judge(const Board& board, Verdict& verdict) {
  verdict.frames_in = front_end_works(board);
  verdict.video_out = all_work(board, {&kCapturePart, &kFpgaVideo, &kFpgaStream});
  verdict.receiver_lock = board.world.audio == AudioSource::kDigital && works(board, kDix4192Lock);
  verdict.sound_in = sound_arrives(board);
  verdict.sound_out = all_work(board, {&kFpgaSound, &kFpgaStream});
}

using Words = std::vector<std::string>;

void add(Words& words, const Board& board, const Parts& parts) {
  for (const Part* part : parts)
    for (std::string& one : lacks(board, *part)) words.push_back(std::move(one));
}

// Those in the way of what is plugged in go to `used`, the others to `idle`.
void divide(const Board& board, bool in_the_way, const Parts& parts, Words& used, Words& idle) {
  add(in_the_way ? used : idle, board, parts);
}

}  // namespace

bool works(const Board& board, const Part& part) {
  return std::ranges::none_of(
      part.needs, [&board](const Need& need) { return !need.spoils && need.lacking(board); });
}

std::vector<std::string> lacks(const Board& board, const Part& part) {
  Words words;
  for (const Need& need : part.needs)
    if (need.lacking(board)) words.push_back(std::string(part.name) + ": " + need.lack);
  return words;
}

Lacking lacking(const Board& board) {
  Lacking all;
  const World& world = board.world;
  const bool composite = world.video == VideoSource::kComposite;
  const bool digitizer = world.video == VideoSource::kComponent || world.video == VideoSource::kVga;
  if (world.video == VideoSource::kNone) all.picture.push_back("no source is plugged in");
  divide(board, digitizer, {&kTvp7002Sync, &kTvp7002Picture}, all.picture, all.others);
  divide(board, composite, {&kTvp5150Lock, &kTvp5150Picture}, all.picture, all.others);
  divide(board, composite && world.captions, {&kTvp5150Captions}, all.picture, all.others);
  divide(board, digitizer || composite, {&kFpgaPicture, &kCapturePart}, all.picture, all.others);
  if (world.faults.video_freeze) all.picture.push_back("the source's sync is gone");

  if (world.audio == AudioSource::kNone) all.sound.push_back("no source is plugged in");
  const bool digital = world.audio == AudioSource::kDigital;
  divide(board, digital, {&kDix4192Lock, &kDix4192Output}, all.sound, all.others);
  divide(board, world.audio == AudioSource::kDsp, {&kAc3DspPart}, all.sound, all.others);
  divide(board, world.audio != AudioSource::kNone, {&kFpgaSound}, all.sound, all.others);

  add(all.stream, board, {&kFpgaStream, &kFpgaVideo});
  if (board.encoder.pid == 0)
    all.stream.push_back("encode: does not run");
  else if (!board.encoder.streaming)
    all.stream.push_back("encode: delivers nothing");
  add(all.others, board, {&k7353Part, &kClock55Part, &kPllPart});
  return all;
}

void set_up_changed(const Board& board) {
  std::atomic_ref<bool>(board.verdict.stale).store(true, std::memory_order_relaxed);
}

const Verdict& verdict(const Board& board) {
  const std::atomic_ref<bool> stale(board.verdict.stale);
  if (!stale.load(std::memory_order_relaxed)) return board.verdict;
  stale.store(false, std::memory_order_relaxed);
  judge(board, board.verdict);
  return board.verdict;
}

}  // namespace vboard
