// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/codec/AudioDecoder.h"
#include "platform/media/codec/VideoDecoder.h"
#include "platform/media/source/FileSampleSource.h"

namespace zaffo::media {

inline constexpr int kTestOutputRate = 48000;

inline std::string textOf(const NSErrorPtr& error) {
  return error ? error->localizedDescription() : "";
}

/// Opens a clip, or fails the test with its error.
inline std::shared_ptr<FileSampleSource> openClip(const std::string& path) {
  auto source = FileSampleSource::open(path);
  EXPECT_TRUE(source) << path << ": " << textOf(source.error());
  return std::move(source).valueOr(nullptr);
}

inline std::shared_ptr<const AVAssetTrack> trackOfType(const SampleSource& source,
                                                       AVMediaType type) {
  for (const auto& track : source.tracks()) {
    if (track->mediaType == type) return track;
  }
  return nullptr;
}

inline std::unique_ptr<SampleCursor> openTrack(SampleSource& source, AVMediaType type) {
  const auto track = trackOfType(source, type);
  EXPECT_TRUE(track) << "no such track";
  if (!track) return nullptr;
  auto cursor = source.openCursor(track->trackID);
  EXPECT_TRUE(cursor) << textOf(cursor.error());
  return std::move(cursor).valueOr(nullptr);
}

/// The next sample; waits where its bytes are not held. For a cursor that nobody else is told of.
inline Outcome nextHeld(SampleCursor& cursor, Sample& sample) {
  const auto ready = std::make_shared<std::counting_semaphore<>>(0);
  cursor.setReadyHandler([ready] { ready->release(); });
  Outcome outcome;
  while ((outcome = cursor.next(sample)) == Outcome::Again) {
    if (!ready->try_acquire_for(std::chrono::seconds(10))) break;
  }
  return outcome;
}

/// Every sample from where the cursor stands to its end.
inline std::vector<Sample> readAll(SampleCursor& cursor, Outcome expected = Outcome::End) {
  std::vector<Sample> samples;
  Sample sample;
  Outcome outcome;
  while ((outcome = nextHeld(cursor, sample)) == Outcome::Ready) {
    samples.push_back(std::move(sample));
    sample = Sample();
  }
  EXPECT_EQ(outcome, expected);
  return samples;
}

/// Takes what a decoder has ready; counts errors instead of stopping at them.
template <typename Decoder, typename Output>
Outcome collect(Decoder& decoder, std::vector<Output>& output, int* errors = nullptr) {
  for (;;) {
    Output one;
    const Outcome outcome = decoder.receive(one);
    if (outcome == Outcome::Again || outcome == Outcome::End) return outcome;
    if (outcome == Outcome::Ready) output.push_back(std::move(one));
    if (outcome == Outcome::Error && errors) ++*errors;
    if (outcome == Outcome::Error && !errors) ADD_FAILURE() << "decoding failed";
  }
}

template <typename Output, typename Decoder>
std::vector<Output> decodeRest(SampleCursor& cursor, Decoder& decoder, int* errors = nullptr) {
  std::vector<Output> output;
  Sample sample;
  while (nextHeld(cursor, sample) == Outcome::Ready) {
    const Outcome sent = decoder.send(sample);
    if (sent == Outcome::Error && errors) ++*errors;
    if (sent == Outcome::Error && !errors) ADD_FAILURE() << "a sample was refused";
    (void)collect(decoder, output, errors);
  }
  decoder.drain();
  EXPECT_EQ(collect(decoder, output, errors), Outcome::End);
  return output;
}

inline std::unique_ptr<VideoDecoder> openVideoDecoder(const SampleCursor& cursor) {
  auto decoder = VideoDecoder::open(cursor.codecParameters());
  EXPECT_TRUE(decoder) << textOf(decoder.error());
  return std::move(decoder).valueOr(nullptr);
}

inline std::unique_ptr<AudioDecoder> openAudioDecoder(const SampleCursor& cursor) {
  auto decoder = AudioDecoder::open(cursor.codecParameters(), kTestOutputRate);
  EXPECT_TRUE(decoder) << textOf(decoder.error());
  return std::move(decoder).valueOr(nullptr);
}

inline std::vector<VideoFrame> decodeVideo(const std::string& path, int* errors = nullptr) {
  const auto source = openClip(path);
  const auto cursor = source ? openTrack(*source, AVMediaTypeVideo) : nullptr;
  const auto decoder = cursor ? openVideoDecoder(*cursor) : nullptr;
  return decoder ? decodeRest<VideoFrame>(*cursor, *decoder, errors) : std::vector<VideoFrame>();
}

/// Sound put together from blocks at their places; what lies between them is silence.
struct Sound {
  int64_t first = 0;
  int jumps = 0;
  std::vector<float> samples;  // from output frame 0 on

  [[nodiscard]] int64_t frames() const { return static_cast<int64_t>(samples.size() / 2); }

  /// The amplitude of a tone in frames [from, from + count) of one side (0 left, 1 right).
  [[nodiscard]] double amplitude(double hertz, int64_t from, int64_t count, int side) const {
    double real = 0, imaginary = 0;
    for (int64_t i = 0; i < count; ++i) {
      const double angle = 2 * M_PI * hertz * static_cast<double>(from + i) / kTestOutputRate;
      const double value = samples.at(static_cast<std::size_t>(2 * (from + i) + side));
      real += value * std::cos(angle);
      imaginary += value * std::sin(angle);
    }
    return 2 * std::hypot(real, imaginary) / static_cast<double>(count);
  }
};

inline Sound join(const std::vector<AudioBlock>& blocks) {
  Sound sound;
  sound.first = blocks.empty() ? 0 : blocks.front().firstFrame;
  int64_t expected = sound.first;
  for (const AudioBlock& block : blocks) {
    if (block.firstFrame != expected) ++sound.jumps;
    expected = block.firstFrame + block.frames();
    const auto end = static_cast<std::size_t>(2 * expected);
    if (sound.samples.size() < end) sound.samples.resize(end);
    std::copy(block.samples.begin(), block.samples.end(),
              sound.samples.begin() + 2 * block.firstFrame);
  }
  return sound;
}

inline Sound decodeAudio(const std::string& path, int* errors = nullptr) {
  const auto source = openClip(path);
  const auto cursor = source ? openTrack(*source, AVMediaTypeAudio) : nullptr;
  const auto decoder = cursor ? openAudioDecoder(*cursor) : nullptr;
  return decoder ? join(decodeRest<AudioBlock>(*cursor, *decoder, errors)) : Sound();
}

}  // namespace zaffo::media
