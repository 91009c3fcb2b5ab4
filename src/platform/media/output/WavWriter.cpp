// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/WavWriter.h"
#include "platform/foundation/MakeError.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

namespace zaffo::media {

namespace {

static_assert(std::endian::native == std::endian::little, "samples are written as they lie");

constexpr uint64_t kBytesPerFrame = 2 * sizeof(float);
constexpr uint32_t kInDs64 = 0xffffffff;

/// The header, byte by byte; WAV is little-endian.
class HeaderBytes {
 public:
  void tag(std::string_view four) {
    for (const char byte : four) bytes_.push_back(byte);
  }
  void u16(uint16_t value) { number(value, 2); }
  void u32(uint32_t value) { number(value, 4); }
  void u64(uint64_t value) { number(value, 8); }
  [[nodiscard]] const std::vector<char>& bytes() const { return bytes_; }

 private:
  void number(uint64_t value, int size) {
    for (int i = 0; i < size; ++i) bytes_.push_back(static_cast<char>(value >> (8 * i) & 0xff));
  }

  std::vector<char> bytes_;
};

constexpr uint64_t kHeaderSize = 12 + 36 + 26 + 12 + 8;

/// `large`: RF64, whose true sizes stand in the ds64 chunk; otherwise that room is left unused.
HeaderBytes header(uint64_t frames, uint32_t sampleRate, bool large) {
  const uint64_t data = frames * kBytesPerFrame;
  const uint64_t riff = kHeaderSize - 8 + data;
  HeaderBytes h;
  h.tag(large ? "RF64" : "RIFF");
  h.u32(large ? kInDs64 : static_cast<uint32_t>(riff));
  h.tag("WAVE");
  h.tag(large ? "ds64" : "JUNK");
  h.u32(28);
  h.u64(large ? riff : 0);
  h.u64(large ? data : 0);
  h.u64(large ? frames : 0);
  h.u32(0);
  h.tag("fmt ");
  h.u32(18);
  h.u16(3);  // IEEE float
  h.u16(2);
  h.u32(sampleRate);
  h.u32(sampleRate * static_cast<uint32_t>(kBytesPerFrame));
  h.u16(kBytesPerFrame);
  h.u16(8 * sizeof(float));
  h.u16(0);
  h.tag("fact");
  h.u32(4);
  h.u32(large ? kInDs64 : static_cast<uint32_t>(frames));
  h.tag("data");
  h.u32(large ? kInDs64 : static_cast<uint32_t>(data));
  return h;
}

NSErrorPtr posixError(int code, const std::string& path) {
  return NSError::create(
      "NSPOSIXErrorDomain", code,
      {{NSLocalizedDescriptionKey, "Cannot write \"" + path + "\": " + std::strerror(code) + "."}});
}

}  // namespace

Result<std::unique_ptr<WavWriter>> WavWriter::create(const std::string& path, int sampleRate,
                                                     uint64_t largestRiff) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (!file) return posixError(errno, path);
  std::unique_ptr<WavWriter> writer(new WavWriter(file, sampleRate, largestRiff));
  writer->flush();
  if (writer->failed()) return posixError(errno, path);
  return writer;
}

WavWriter::WavWriter(std::FILE* file, int sampleRate, uint64_t largestRiff)
    : file_(file), sampleRate_(sampleRate), largestRiff_(largestRiff) {}

WavWriter::~WavWriter() {
  flush();
}

void WavWriter::append(std::span<const float> interleaved) {
  if (failed_ || interleaved.empty()) return;
  const size_t written =
      std::fwrite(interleaved.data(), sizeof(float), interleaved.size(), file_.get());
  failed_ = written != interleaved.size();
  frames_ += static_cast<int64_t>(written / 2);
}

void WavWriter::appendSilence(int64_t frames) {
  const std::vector<float> silence(static_cast<size_t>(2 * std::min<int64_t>(frames, 65536)));
  for (int64_t left = frames; left > 0 && !failed_; left -= 65536) {
    append(std::span(silence).first(static_cast<size_t>(2 * std::min<int64_t>(left, 65536))));
  }
}

void WavWriter::flush() {
  writeHeader();
  if (std::fflush(file_.get()) != 0) failed_ = true;
}

void WavWriter::writeHeader() {
  const auto frames = static_cast<uint64_t>(frames_);
  const bool large = frames * kBytesPerFrame > largestRiff_;
  const HeaderBytes h = header(frames, static_cast<uint32_t>(sampleRate_), large);
  const bool done =
      std::fseek(file_.get(), 0, SEEK_SET) == 0 &&
      std::fwrite(h.bytes().data(), 1, h.bytes().size(), file_.get()) == h.bytes().size() &&
      std::fseek(file_.get(), 0, SEEK_END) == 0;
  if (!done) failed_ = true;
}

}  // namespace zaffo::media
