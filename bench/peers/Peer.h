// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

/// What every library that plays video is measured at, in the same program (measure.cpp), each
/// tuned as its own documentation says, with one decoder thread a player. Nothing is drawn: a
/// picture is there when it could be. Sound is decoded and goes nowhere. Thread: main.
namespace peers {

class Player {
 public:
  virtual ~Player() = default;

  /// Opens a clip, a file or an http address, in place of another one if there is one, and returns
  /// when it stands still at its first picture.
  virtual void open(const std::string& path) = 0;
  /// Goes to a picture exactly, and returns when that is there.
  virtual void seek(double seconds) = 0;
  virtual void play() = 0;
  /// As play(), again and again without an end, from an item made for that where the library has
  /// one. Only for a player that has opened nothing.
  virtual void openLooping(const std::string& path) = 0;
  /// Pictures that have been shown, or handed over to be, since the clip was opened.
  [[nodiscard]] virtual long pictures() = 0;
};

/// Lets the library do its work on the main thread, if it has any, for a stretch of time.
void runFor(double seconds);

/// Made by the one library that a program is linked with.
[[nodiscard]] std::unique_ptr<Player> makePlayer();

/// Whether a clip is an address.
inline bool isAddress(const std::string& clip) {
  return clip.find("://") != std::string::npos;
}

/// For libraries that work on threads of their own: there is nothing to wait for but the clock.
void letTimePass(double seconds);

/// Ends the program: the library could not do what it was asked to.
[[noreturn]] void fail(const std::string& what);

/// Seconds after which a player that has not answered has failed.
constexpr double kPatience = 20;

}  // namespace peers
