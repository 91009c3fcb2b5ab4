// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtCore/QObject>
#include <QtCore/QSizeF>
#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtGui/QImage>

#include <memory>

#define ZAFFO_QT_EXPORT [[gnu::visibility("default")]]

class QVideoSink;

/// A clip for Qt: plays, and hands its pictures to a QVideoSink or to whoever asks for an image.
/// All of it belongs to the thread of the application object, which has to be the process's first,
/// or the one that called zaffo_main_adopt(). The library's work is run by Qt's event loop.
///
/// Players come from one pool, which lives as long as any clip and has the usual bounds: at most 8
/// clips play at once. Two clips of one address and loop have one player between them, whose
/// pictures go to the later.
class ZAFFO_QT_EXPORT ZaffoClip : public QObject {
  Q_OBJECT
  Q_MOC_INCLUDE(<QtMultimedia / QVideoSink>)
  Q_PROPERTY(QUrl source READ source WRITE setSource NOTIFY sourceChanged FINAL)
  Q_PROPERTY(bool playing READ isPlaying WRITE setPlaying NOTIFY playingChanged FINAL)
  Q_PROPERTY(bool loop READ isLooping WRITE setLooping NOTIFY loopChanged FINAL)
  Q_PROPERTY(bool active READ isActive WRITE setActive NOTIFY activeChanged FINAL)
  Q_PROPERTY(double volume READ volume WRITE setVolume NOTIFY volumeChanged FINAL)
  Q_PROPERTY(bool muted READ isMuted WRITE setMuted NOTIFY mutedChanged FINAL)
  Q_PROPERTY(Status status READ status NOTIFY statusChanged FINAL)
  Q_PROPERTY(QString error READ error NOTIFY statusChanged FINAL)
  Q_PROPERTY(bool hasPicture READ hasPicture NOTIFY hasPictureChanged FINAL)
  Q_PROPERTY(QSizeF pictureSize READ pictureSize NOTIFY pictureSizeChanged FINAL)
  Q_PROPERTY(QVideoSink* videoSink READ videoSink WRITE setVideoSink NOTIFY videoSinkChanged FINAL)

 public:
  enum Status {
    Idle,     ///< has no player and asks for none: no source, or not active
    Loading,  ///< waits for its player
    Ready,    ///< has one
    Failed,   ///< error() says why; tried again with another source, or when it is active again
  };
  Q_ENUM(Status)

  explicit ZaffoClip(QObject* parent = nullptr);
  ~ZaffoClip() override;

  /// A local file, or an http or https address. Another one plays from its beginning.
  QUrl source() const;
  void setSource(const QUrl& source);
  /// Whether it plays, or will as soon as it can; initially so. True of a clip at its end, too.
  bool isPlaying() const;
  void setPlaying(bool playing);
  /// Whether the clip goes on at its end without a gap; initially so. A change begins it anew.
  bool isLooping() const;
  void setLooping(bool loop);
  /// Whether it has a player, or asks for one; initially so. One that is not active has no picture
  /// and no sound, and wakes nobody. Its player goes back to the pool, which keeps it ready for a
  /// while: active again soon, the clip is there at once, at its beginning.
  bool isActive() const;
  void setActive(bool active);
  /// Of the sound, 0 to 1.
  double volume() const;
  void setVolume(double volume);
  bool isMuted() const;
  void setMuted(bool muted);

  Status status() const;
  /// For a person to read; empty unless it failed.
  QString error() const;
  bool hasPicture() const;
  /// What the clip measures upright in square pixels; empty until its first picture, and kept until
  /// another source is set.
  QSizeF pictureSize() const;

  /// Gets every picture in its turn: the decoder's planes with their matrix, range, turn and
  /// mirroring, or else BGRA, upright, where a QVideoFrame cannot say what is meant. Keeps the last
  /// one when there is none any more. May be destroyed first.
  QVideoSink* videoSink() const;
  void setVideoSink(QVideoSink* sink);

  /// The picture that is due now, upright and stretched to `size`; null when there is none, or the
  /// size is empty. Converted once for each picture and size.
  QImage image(const QSize& size);

  /// A clip at its end needs a seek to the beginning as well.
  Q_INVOKABLE void play() { setPlaying(true); }
  Q_INVOKABLE void pause() { setPlaying(false); }
  /// Goes to the exact picture at that time, as soon as there is a player; ignored unless it is 0
  /// or more. The rounds of a loop follow one another in time.
  Q_INVOKABLE void seek(double seconds);
  /// In seconds; 0 without a player.
  Q_INVOKABLE double position() const;
  /// All rounds of a loop together, in seconds; 0 without a player, and -1 when not known.
  Q_INVOKABLE double duration() const;

 Q_SIGNALS:
  void sourceChanged();
  void playingChanged();
  void loopChanged();
  void activeChanged();
  void volumeChanged();
  void mutedChanged();
  void statusChanged();
  void hasPictureChanged();
  void pictureSizeChanged();
  void videoSinkChanged();
  /// Another picture is due than image() gave last, or none any more; then not again until that has
  /// been called. With a sink, which takes each, for every picture.
  void pictureChanged();

 private:
  struct [[gnu::visibility("hidden")]] Private;
  const std::unique_ptr<Private> d_;
};
