// SPDX-License-Identifier: Apache-2.0

// Opens the bytes as a file, reads each of its tracks from a few places and decodes what it reads.
#include <array>
#include <set>

#include "fuzz/FuzzTarget.h"
#include "fuzz/MemoryFile.h"
#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/codec/AudioDecoder.h"
#include "platform/media/codec/VideoDecoder.h"
#include "platform/media/source/FileSampleSource.h"

namespace zaffo::media {
namespace {

using fuzz::require;

// Bounds of one run, so that it takes milliseconds.
constexpr std::size_t kTracks = 4;
constexpr int kSamplesAtAPlace = 8;
constexpr double kMostPixels = 1 << 20;
// What no decoder comes near from the samples of one place.
constexpr int kReceivesUntilStuck = 10000;

constexpr int kOutputRate = 48000;
constexpr std::array kPlaces{CMTimeMake(0, 1), CMTimeMake(3, 2), CMTimeMake(-1, 1),
                             CMTimeMake(3600, 1)};

/// Reads the ends of each row, which lie where a wrong size or stride leaves the memory.
void touch(const CVPixelBuffer::Plane& plane, int rows, int bytes) {
  unsigned sum = 0;
  for (int row = 0; row < rows; ++row) {
    const uint8_t* const start = plane.data + plane.stride * row;
    sum += start[0] + start[bytes - 1];
  }
  // Kept, so that the reading is not optimised away.
  static volatile unsigned seen = 0;
  seen = seen + sum;
}

void examine(const VideoFrame& frame) {
  require(frame.buffer != nullptr, "a decoded frame has a picture");
  const CVPixelBuffer& picture = *frame.buffer;
  require(picture.width > 0 && picture.height > 0, "a picture has a size");
  require(picture.cropLeft >= 0 && picture.cropTop >= 0 && picture.cropWidth > 0 &&
              picture.cropHeight > 0 && picture.cropLeft + picture.cropWidth <= picture.width &&
              picture.cropTop + picture.cropHeight <= picture.height,
          "what is shown lies within the picture");
  require(picture.pixelAspectRatio > 0, "pixels have a shape");
  require(CMTIME_IS_NUMERIC(frame.presentation), "a frame has a time");
  require(picture.planes[0].data != nullptr, "a picture has pixels");
  touch(picture.planes[0], picture.height, picture.width);
}

void examine(const AudioBlock& block) {
  require(block.samples.size() % 2 == 0, "sound is stereo");
}

template <typename Output, typename Decoder>
void receiveAll(Decoder& decoder, Outcome last) {
  for (int i = 0; i < kReceivesUntilStuck; ++i) {
    Output output;
    const Outcome outcome = decoder.receive(output);
    if (outcome == Outcome::Ready) examine(output);
    if (outcome == Outcome::Error) require(decoder.error() != nullptr, "an error is told");
    if (outcome == last) return;
    require(outcome == Outcome::Ready || outcome == Outcome::Error,
            "only a drained decoder ends, and it does not ask for more");
  }
  require(false, "a decoder comes to an end");
}

/// Decodes a few samples from where the cursor stands.
template <typename Output, typename Decoder>
void decodeSome(SampleCursor& cursor, Decoder& decoder) {
  for (int i = 0; i < kSamplesAtAPlace; ++i) {
    Sample sample;
    const Outcome outcome = cursor.next(sample);
    require(outcome != Outcome::Again, "a file never waits");
    if (outcome == Outcome::Error) require(cursor.error() != nullptr, "an error is told");
    if (outcome != Outcome::Ready) break;
    require(sample.packet != nullptr, "a sample has data");
    const Outcome sent = decoder.send(sample);
    require(sent == Outcome::Ready || sent == Outcome::Error, "an emptied decoder takes a sample");
    receiveAll<Output>(decoder, Outcome::Again);
  }
  decoder.drain();
  receiveAll<Output>(decoder, Outcome::End);
}

template <typename Output, typename Decoder>
void decodePlaces(SampleCursor& cursor, const Result<std::unique_ptr<Decoder>>& opened) {
  require(opened || opened.error(), "a refused track has an error");
  if (!opened) return;
  Decoder& decoder = **opened;
  decodeSome<Output>(cursor, decoder);
  for (const CMTime place : kPlaces) {
    decoder.reset();
    if (cursor.seek(place)) decodeSome<Output>(cursor, decoder);
  }
}

void readTrack(FileSampleSource& source, const AVAssetTrack& track) {
  const auto opened = source.openCursor(track.trackID);
  require(opened || opened.error(), "a cursor that is not opened has an error");
  if (!opened) return;
  SampleCursor& cursor = **opened;
  if (track.mediaType == AVMediaTypeAudio) {
    decodePlaces<AudioBlock>(cursor, AudioDecoder::open(cursor.codecParameters(), kOutputRate));
  } else if (track.naturalSize.width * track.naturalSize.height <= kMostPixels) {
    decodePlaces<VideoFrame>(cursor, VideoDecoder::open(cursor.codecParameters()));
  }
}

}  // namespace
}  // namespace zaffo::media

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using namespace zaffo;
  static const fuzz::MemoryFile file;
  file.setContent({data, size});
  const auto opened = media::FileSampleSource::open(file.path());
  fuzz::require(opened || opened.error(), "a file that is not opened has an error");
  if (!opened) return 0;
  const auto& source = *opened;
  fuzz::require(!source->tracks().empty(), "an opened file has tracks");
  std::set<int> ids;
  for (const auto& track : source->tracks()) {
    fuzz::require(track->trackID > 0 && ids.insert(track->trackID).second, "tracks have own IDs");
    if (ids.size() <= media::kTracks) media::readTrack(*source, *track);
  }
  return 0;
}
