// SPDX-License-Identifier: Apache-2.0
#include "ZaffoClip.h"

#include <ZaffoPlayback/ZaffoPlayback.h>

#include <QtCore/QPointer>
#include <QtMultimedia/QVideoSink>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "QtRuntime.h"
#include "VideoFrame.h"

namespace {

std::shared_ptr<const zaffo::NSURL> addressOf(const QUrl& source) {
  if (source.isLocalFile())
    return zaffo::NSURL::fileURLWithPath(source.toLocalFile().toStdString());
  if (source.isRelative()) return zaffo::NSURL::fileURLWithPath(source.path().toStdString());
  return zaffo::NSURL::URLWithString(source.toString(QUrl::FullyEncoded).toStdString());
}

}  // namespace

/// What a clip has of the library. Emits only in tell(), which comes last: a slot may delete the
/// clip.
struct ZaffoClip::Private {
  /// What the clip tells of changes to.
  struct State {
    Status status = Idle;
    QString error;
    bool hasPicture = false;
    QSizeF pictureSize;
  };

  explicit Private(ZaffoClip* owner) : clip(owner), pool(zaffo::qt::sharedPool()) {}

  void load();
  void unload();
  void answer(const zaffo::PlayerLoadResult& result);
  void fail(const QString& text);
  void releasePlayer();
  void pictureIsDue();
  void takePicture();
  void feedSink();
  void tell();
  [[nodiscard]] float heardVolume() const { return isMuted ? 0 : static_cast<float>(volume); }

  ZaffoClip* const clip;
  const std::shared_ptr<zaffo::PlayerManager> pool;

  QUrl source;
  bool isPlaying = true, isLooping = true, isActive = true, isMuted = false;
  double volume = 1;
  std::optional<double> start;  ///< where to go once there is a player
  QPointer<QVideoSink> sink;

  zaffo::ZFCancelCommandPtr request;  ///< null once it is answered
  std::shared_ptr<zaffo::PlayerDecorator> player;
  std::shared_ptr<zaffo::PictureOutput> output;
  bool isOutdated = false;  ///< whether another picture is due than the one held
  std::optional<zaffo::OutputPicture> picture;
  QImage image;  ///< of the picture held, as it was asked for last
  State state, told;
};

void ZaffoClip::Private::load() {
  if (!isActive || source.isEmpty() || request || player) return;
  const auto url = addressOf(source);
  if (!url) return fail(QStringLiteral("This is no address of a clip: ") + source.toString());
  state.status = Loading;
  const auto loop = isLooping ? zaffo::ClipVideo::Loop::Endless : zaffo::ClipVideo::Loop::None;
  auto command = zaffo::play(pool, zaffo::ClipVideo::create(url, loop),
                             [this](const zaffo::PlayerLoadResult& result) { answer(result); });
  if (state.status == Loading) request = std::move(command);
}

void ZaffoClip::Private::answer(const zaffo::PlayerLoadResult& result) {
  const bool isLater = std::exchange(request, nullptr) != nullptr;
  if (result.error()) {
    fail(QString::fromStdString(result.error()->localizedDescription()));
  } else {
    player = result.player();
    player->setVolume(heardVolume());
    if (!isPlaying) player->setRate(0);
    if (const auto seconds = std::exchange(start, std::nullopt)) clip->seek(*seconds);
    output = zaffo::PictureOutput::attach(player, [this] { pictureIsDue(); });
    state.status = Ready;
  }
  if (isLater) tell();
}

void ZaffoClip::Private::fail(const QString& text) {
  releasePlayer();
  state.status = Failed;
  state.error = text;
}

void ZaffoClip::Private::unload() {
  releasePlayer();
  start.reset();
  state.status = Idle;
  state.error.clear();
}

void ZaffoClip::Private::releasePlayer() {
  if (const auto command = std::exchange(request, nullptr)) command->cancel();
  output = nullptr;
  if (player) player->setRate(0);
  player = nullptr;
  picture.reset();
  image = {};
  isOutdated = state.hasPicture = false;
}

/// What nobody has asked for since it was measured is not taken: then no other is told of.
void ZaffoClip::Private::pictureIsDue() {
  isOutdated = true;
  if (!state.hasPicture || sink) takePicture();
  const QPointer<ZaffoClip> alive(clip);
  feedSink();
  if (alive) tell();
  if (alive) Q_EMIT clip->pictureChanged();
}

void ZaffoClip::Private::takePicture() {
  if (!std::exchange(isOutdated, false)) return;
  image = {};
  picture = output->picture();
  state.hasPicture = picture.has_value();
  if (!picture) return;
  const zaffo::CGSize size = picture->naturalSize();
  state.pictureSize = QSizeF(size.width, size.height);
}

void ZaffoClip::Private::feedSink() {
  if (!sink || !picture) return;
  if (const QVideoFrame frame = zaffo::qt::makeVideoFrame(*picture); frame.isValid())
    sink->setVideoFrame(frame);
}

void ZaffoClip::Private::tell() {
  const QPointer<ZaffoClip> alive(clip);
  const State former = std::exchange(told, state);
  const State now = state;
  if (former.pictureSize != now.pictureSize) Q_EMIT clip->pictureSizeChanged();
  if (alive && former.hasPicture != now.hasPicture) Q_EMIT clip->hasPictureChanged();
  if (alive && (former.status != now.status || former.error != now.error))
    Q_EMIT clip->statusChanged();
}

ZaffoClip::ZaffoClip(QObject* parent) : QObject(parent), d_(std::make_unique<Private>(this)) {}

ZaffoClip::~ZaffoClip() {
  d_->releasePlayer();
}

QUrl ZaffoClip::source() const {
  return d_->source;
}

void ZaffoClip::setSource(const QUrl& source) {
  if (source == d_->source) return;
  d_->source = source;
  d_->unload();
  d_->state.pictureSize = {};
  d_->load();
  const QPointer<ZaffoClip> alive(this);
  Q_EMIT sourceChanged();
  if (alive) d_->tell();
}

bool ZaffoClip::isPlaying() const {
  return d_->isPlaying;
}

void ZaffoClip::setPlaying(bool playing) {
  if (d_->player) d_->player->setRate(playing ? 1 : 0);
  if (playing == std::exchange(d_->isPlaying, playing)) return;
  Q_EMIT playingChanged();
}

bool ZaffoClip::isLooping() const {
  return d_->isLooping;
}

void ZaffoClip::setLooping(bool loop) {
  if (loop == std::exchange(d_->isLooping, loop)) return;
  d_->unload();
  d_->load();
  const QPointer<ZaffoClip> alive(this);
  Q_EMIT loopChanged();
  if (alive) d_->tell();
}

bool ZaffoClip::isActive() const {
  return d_->isActive;
}

void ZaffoClip::setActive(bool active) {
  if (active == std::exchange(d_->isActive, active)) return;
  d_->unload();
  d_->load();
  const QPointer<ZaffoClip> alive(this);
  Q_EMIT activeChanged();
  if (alive) d_->tell();
}

double ZaffoClip::volume() const {
  return d_->volume;
}

void ZaffoClip::setVolume(double volume) {
  volume = volume > 0 ? std::min(volume, 1.0) : 0;
  if (volume == std::exchange(d_->volume, volume)) return;
  if (d_->player) d_->player->setVolume(d_->heardVolume());
  Q_EMIT volumeChanged();
}

bool ZaffoClip::isMuted() const {
  return d_->isMuted;
}

void ZaffoClip::setMuted(bool muted) {
  if (muted == std::exchange(d_->isMuted, muted)) return;
  if (d_->player) d_->player->setVolume(d_->heardVolume());
  Q_EMIT mutedChanged();
}

ZaffoClip::Status ZaffoClip::status() const {
  return d_->state.status;
}

QString ZaffoClip::error() const {
  return d_->state.error;
}

bool ZaffoClip::hasPicture() const {
  return d_->state.hasPicture;
}

QSizeF ZaffoClip::pictureSize() const {
  return d_->state.pictureSize;
}

QVideoSink* ZaffoClip::videoSink() const {
  return d_->sink;
}

void ZaffoClip::setVideoSink(QVideoSink* sink) {
  if (sink == d_->sink) return;
  d_->sink = sink;
  const QPointer<ZaffoClip> alive(this);
  if (sink && d_->output) d_->takePicture();
  d_->feedSink();
  if (alive) d_->tell();
  if (alive) Q_EMIT videoSinkChanged();
}

QImage ZaffoClip::image(const QSize& size) {
  if (d_->output) d_->takePicture();
  if (!d_->picture || size.isEmpty()) return {};
  if (d_->image.size() == size) return d_->image;
  QImage image(size, QImage::Format_RGB32);
  if (image.isNull() || !d_->picture->convertTo(image.bits(), size.width(), size.height(),
                                                static_cast<std::ptrdiff_t>(image.bytesPerLine())))
    return {};
  d_->image = image;
  return image;
}

void ZaffoClip::seek(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0) return;
  if (!d_->player) {
    d_->start = seconds;
    return;
  }
  d_->player->seekToTime(zaffo::CMTimeMakeWithSeconds(seconds, 90000), zaffo::kCMTimeZero,
                         zaffo::kCMTimeZero, {});
}

double ZaffoClip::position() const {
  return d_->player ? zaffo::CMTimeGetSeconds(d_->player->currentTime()) : 0;
}

double ZaffoClip::duration() const {
  if (!d_->player) return 0;
  const auto item = d_->player->playerItem();
  const double seconds = item ? zaffo::CMTimeGetSeconds(item->duration()) : -1;
  return std::isfinite(seconds) ? seconds : -1;
}
