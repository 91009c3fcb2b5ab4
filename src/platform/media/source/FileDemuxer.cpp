// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/FileDemuxer.h"
#include "platform/foundation/MakeError.h"

#include <algorithm>
#include <array>
#include <vector>

namespace zaffo::media {
namespace {

constexpr std::size_t kContentBytes = 16 * 1024;
constexpr int64_t kProbeBytes = 64 * 1024;
constexpr int64_t kSegmentProbeBytes = 4 * 1024 * 1024;  // a large key frame, and sound behind it
constexpr int64_t kProbeMicroseconds = 500'000;

int refuseOtherFiles(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
  return AVERROR(EPERM);
}

// The container's word on the shape of a pixel comes before the codec's.
void adoptContainerAspect(AVStream& stream) {
  if (stream.sample_aspect_ratio.num > 0) {
    stream.codecpar->sample_aspect_ratio = stream.sample_aspect_ratio;
  }
}

}  // namespace

Result<std::unique_ptr<FileDemuxer>> FileDemuxer::open(ReadTask& task, Kind kind) {
  std::unique_ptr<FileDemuxer> demuxer(new FileDemuxer(task, kind));
  if (NSErrorPtr failure = demuxer->parse()) return failure;
  return demuxer;
}

FileDemuxer::~FileDemuxer() = default;

NSErrorPtr FileDemuxer::notRecognised() const {
  return makeError(AVErrorFileFormatNotRecognized, "The file \"" + input_.task().bytes().name() +
                                                       "\" is not in a format that can be played.");
}

NSErrorPtr FileDemuxer::recogniseSegment() {
  std::vector<uint8_t> bytes(kContentBytes);
  const int64_t count = input_.task().readAll(0, bytes);
  if (count < 0) return readFailed(static_cast<int>(count));
  format_ = ContainerFormat::ofSegment(std::span(bytes).first(static_cast<std::size_t>(count)));
  return format_ ? nullptr : notRecognised();
}

NSErrorPtr FileDemuxer::recognise() {
  if (kind_ == Kind::Segment) return recogniseSegment();
  std::array<uint8_t, 16> head{};
  int64_t count = input_.task().readAll(0, head);
  if (count < 0) return readFailed(static_cast<int>(count));
  format_ = ContainerFormat::byMagic(std::span(head).first(static_cast<std::size_t>(count)));
  if (format_) return nullptr;
  std::vector<uint8_t> bytes(kContentBytes);
  count = input_.task().readAll(ContainerFormat::tagBytes(head), bytes);
  if (count > 0) {
    const auto content = std::span(bytes).first(static_cast<std::size_t>(count));
    format_ = ContainerFormat::byMagic(content);
    if (!format_) format_ = ContainerFormat::byContent(content);
  }
  return format_ ? nullptr : notRecognised();
}

NSErrorPtr FileDemuxer::parse() {
  if (NSErrorPtr failure = recognise()) return failure;
  const AVInputFormat* input = av_find_input_format(format_->name);
  if (!input) return notRecognised();

  keepFFmpegQuiet();
  AVFormatContext* context = makeContext();
  // Frees the context on failure.
  const int opened = avformat_open_input(&context, "", input, nullptr);
  if (opened < 0) return readFailed(opened);
  context_.reset(context);
  if (NSErrorPtr failure = describeStreams()) return failure;
  for (AVStream* stream : streams()) adoptContainerAspect(*stream);
  return nullptr;
}

/// One that reads through input_.
AVFormatContext* FileDemuxer::makeContext() {
  const bool isSegment = kind_ == Kind::Segment;
  if (isSegment) input_.context()->seekable = 0;
  AVFormatContext* context = avformat_alloc_context();
  context->pb = input_.context();
  context->flags |= AVFMT_FLAG_CUSTOM_IO;
  context->io_open = refuseOtherFiles;
  context->protocol_whitelist = av_strdup("");
  context->probesize = isSegment ? kSegmentProbeBytes : kProbeBytes;
  context->max_analyze_duration = kProbeMicroseconds;
  return context;
}

/// Looks at the first packets where the header does not tell all.
NSErrorPtr FileDemuxer::describeStreams() {
  if (format_->describesItself && !lacksPictureSize()) return nullptr;
  const int found = avformat_find_stream_info(context_.get(), nullptr);
  if (found < 0) return readFailed(found);
  // Raw streams have no time line of their own: it starts with the first sample that is heard.
  const bool raw = !format_->describesItself && context_->start_time != AV_NOPTS_VALUE;
  if (raw) startMicroseconds_ = context_->start_time;
  return nullptr;
}

// Some headers leave the size of the picture to its first bytes.
bool FileDemuxer::lacksPictureSize() const {
  return std::ranges::any_of(streams(), [](const AVStream* stream) {
    const AVCodecParameters& parameters = *stream->codecpar;
    return parameters.codec_type == AVMEDIA_TYPE_VIDEO && parameters.codec_id != AV_CODEC_ID_NONE &&
           parameters.width <= 0;
  });
}

bool FileDemuxer::lacksStart(const AVStream& stream) const {
  return format_->hasCompleteIndex && stream.start_time == AV_NOPTS_VALUE &&
         stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
}

void FileDemuxer::learnStarts() {
  const PacketPtr packet(av_packet_alloc());
  for (AVStream* stream : streams()) {
    if (!lacksStart(*stream)) continue;
    for (AVStream* other : streams()) {
      other->discard = other == stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    setMoved();
    if (!rewind(stream->index)) continue;
    // Once it has a packet of the stream, FFmpeg knows when the stream starts, or never will.
    if (av_read_frame(context_.get(), packet.get()) >= 0) av_packet_unref(packet.get());
  }
}

bool FileDemuxer::rewind(int streamIndex) {
  AVStream* stream = context_->streams[streamIndex];
  const AVIndexEntry* first = avformat_index_get_entry(stream, 0);
  if (!first) return false;
  return av_seek_frame(context_.get(), streamIndex, first->timestamp, AVSEEK_FLAG_BACKWARD) >= 0;
}

bool FileDemuxer::survivesAbandoning() {
  if (!context_) return false;
  input_.forgive();
  if (!hasCompleteIndex()) return false;
  const int64_t missing = input_.task().lastMissing();
  return std::ranges::any_of(streams(), [missing](AVStream* stream) {
    for (int i = 0; i < avformat_index_get_entries_count(stream); ++i) {
      const AVIndexEntry& entry = *avformat_index_get_entry(stream, i);
      if (missing >= entry.pos && missing < entry.pos + entry.size) return true;
    }
    return false;
  });
}

int64_t FileDemuxer::timelineStart(const AVStream& stream) const {
  return av_rescale_q(startMicroseconds_, kMicroseconds, stream.time_base);
}

bool FileDemuxer::tellsDecodeTimes(const AVStream& stream) const {
  if (format_ && format_->tellsDecodeTimes) return true;
  const AVCodecDescriptor* codec = avcodec_descriptor_get(stream.codecpar->codec_id);
  return codec && !(codec->props & AV_CODEC_PROP_REORDER);
}

NSErrorPtr FileDemuxer::readFailed(int averror) const {
  return media::readFailed(input_.task().bytes(), averror);
}

}  // namespace zaffo::media
