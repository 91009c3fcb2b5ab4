// SPDX-License-Identifier: Apache-2.0
#include "Floor.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstdio>
#include <cstdlib>

#include "PictureMark.h"

namespace floors {
namespace {

struct FormatDeleter {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecDeleter {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct PacketDeleter {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameDeleter {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "floor: %s\n", what);
  std::exit(1);
}

}  // namespace

struct File::State {
  std::unique_ptr<AVFormatContext, FormatDeleter> format;
  std::unique_ptr<AVCodecContext, CodecDeleter> video, audio;
  std::unique_ptr<AVPacket, PacketDeleter> packet{av_packet_alloc()};
  std::unique_ptr<AVFrame, FrameDeleter> frame{av_frame_alloc()};
  int videoIndex = -1, audioIndex = -1;

  std::unique_ptr<AVCodecContext, CodecDeleter> open(int index) const {
    const AVCodecParameters* parameters = format->streams[index]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    std::unique_ptr<AVCodecContext, CodecDeleter> context(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(context.get(), parameters);
    context->thread_count = 1;
    require(avcodec_open2(context.get(), codec, nullptr) == 0, "cannot open a decoder");
    return context;
  }

  bool readPacketOf(int index) {
    while (av_read_frame(format.get(), packet.get()) == 0) {
      if (packet->stream_index == index) return true;
      av_packet_unref(packet.get());
    }
    return false;
  }

  double seconds(int64_t time, int index) const {
    return static_cast<double>(time) * av_q2d(format->streams[index]->time_base);
  }

  double frameSeconds() const { return seconds(frame->best_effort_timestamp, videoIndex); }
  double frameEnd() const {
    const AVRational rate = format->streams[videoIndex]->avg_frame_rate;
    return frameSeconds() + av_q2d(av_inv_q(rate)) - 1e-6;
  }
};

File::File(const std::string& path) : state_(std::make_unique<State>()) {
  AVFormatContext* format = nullptr;
  require(avformat_open_input(&format, path.c_str(), nullptr, nullptr) == 0, "cannot open a file");
  state_->format.reset(format);
  for (unsigned i = 0; i < format->nb_streams; ++i) {
    const auto type = format->streams[i]->codecpar->codec_type;
    if (type == AVMEDIA_TYPE_VIDEO) state_->videoIndex = static_cast<int>(i);
    if (type == AVMEDIA_TYPE_AUDIO) state_->audioIndex = static_cast<int>(i);
  }
  require(state_->videoIndex >= 0 && state_->audioIndex >= 0, "a file without picture or sound");
}

File::~File() = default;

double File::duration() const {
  const AVStream& stream = *state_->format->streams[state_->videoIndex];
  return state_->seconds(stream.duration, state_->videoIndex);
}

double File::decodeFirstPicture() {
  State& s = *state_;
  if (!s.video) s.video = s.open(s.videoIndex);
  require(s.readPacketOf(s.videoIndex), "no packet");
  avcodec_send_packet(s.video.get(), s.packet.get());
  av_packet_unref(s.packet.get());
  avcodec_send_packet(s.video.get(), nullptr);
  require(avcodec_receive_frame(s.video.get(), s.frame.get()) == 0, "no first picture");
  return s.frameSeconds();
}

double File::rewind() {
  State& s = *state_;
  require(av_seek_frame(s.format.get(), s.videoIndex, 0, AVSEEK_FLAG_BACKWARD) >= 0, "no seek");
  avcodec_flush_buffers(s.video.get());
  return decodeFirstPicture();
}

double File::decodePictureAt(double seconds) {
  State& s = *state_;
  if (!s.video) s.video = s.open(s.videoIndex);
  const AVRational base = s.format->streams[s.videoIndex]->time_base;
  const auto target = static_cast<int64_t>(seconds / av_q2d(base));
  require(av_seek_frame(s.format.get(), s.videoIndex, target, AVSEEK_FLAG_BACKWARD) >= 0,
          "no seek");
  avcodec_flush_buffers(s.video.get());
  for (;;) {
    const bool read = s.readPacketOf(s.videoIndex);
    avcodec_send_packet(s.video.get(), read ? s.packet.get() : nullptr);
    av_packet_unref(s.packet.get());
    while (avcodec_receive_frame(s.video.get(), s.frame.get()) == 0) {
      if (s.frameEnd() > seconds) return s.frameSeconds();
    }
    require(read, "the file ends before the time to seek to");
  }
}

int File::decode(double seconds, Tracks tracks) {
  State& s = *state_;
  if (!s.video) s.video = s.open(s.videoIndex);
  if (!s.audio && tracks == Tracks::Both) s.audio = s.open(s.audioIndex);
  int pictures = 0;
  double played = 0, last = 0;
  while (played + last < seconds) {
    if (av_read_frame(s.format.get(), s.packet.get()) != 0) {
      played += last;
      last = 0;
      require(av_seek_frame(s.format.get(), s.videoIndex, 0, AVSEEK_FLAG_BACKWARD) >= 0, "no seek");
      avcodec_flush_buffers(s.video.get());
      if (s.audio) avcodec_flush_buffers(s.audio.get());
      continue;
    }
    const int index = s.packet->stream_index;
    const bool isPicture = index == s.videoIndex;
    if (isPicture) last = s.seconds(s.packet->dts + s.packet->duration, index);
    AVCodecContext* codec = isPicture ? s.video.get() : s.audio.get();
    if (codec) {
      avcodec_send_packet(codec, s.packet.get());
      while (avcodec_receive_frame(codec, s.frame.get()) == 0) pictures += isPicture;
    }
    av_packet_unref(s.packet.get());
  }
  return pictures;
}

uint64_t File::mark() const {
  const AVFrame& frame = *state_->frame;
  return pictureMark(frame.data[0], frame.linesize[0], frame.width, frame.height);
}

std::vector<uint64_t> File::decodeMarks() {
  State& s = *state_;
  if (!s.video) s.video = s.open(s.videoIndex);
  std::vector<uint64_t> marks;
  for (bool read = true; read;) {
    read = s.readPacketOf(s.videoIndex);
    avcodec_send_packet(s.video.get(), read ? s.packet.get() : nullptr);
    av_packet_unref(s.packet.get());
    while (avcodec_receive_frame(s.video.get(), s.frame.get()) == 0) marks.push_back(mark());
  }
  return marks;
}

double File::bytesAtLeast(double seconds) {
  State& s = *state_;
  double samples = 0;
  while (s.readPacketOf(s.videoIndex) && s.seconds(s.packet->pts, s.videoIndex) < seconds) {
    samples += s.packet->size;
    av_packet_unref(s.packet.get());
  }
  av_packet_unref(s.packet.get());
  require(av_seek_frame(s.format.get(), s.videoIndex, 0, AVSEEK_FLAG_BACKWARD) >= 0, "no seek");
  decodeFirstPicture();
  double picture = 0;
  for (const AVBufferRef* plane : s.frame->buf) {
    if (plane) picture += static_cast<double>(plane->size);
  }
  return picture + samples;
}

}  // namespace floors
