// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// The same work with libavformat and libavcodec alone, in one thread: what the library is
/// measured against. The container is opened without probing packets, and a single picture is
/// drained out of the decoder instead of waiting for the reorder delay. Thread: any, one at a time.
namespace floors {

/// An opened file: container, and one single-threaded decoder for the picture.
class File {
 public:
  /// Opens the container, nothing else. Ends the program when the file cannot be opened.
  explicit File(const std::string& path);
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  /// Opens the decoder and decodes the first picture. Returns its time in seconds.
  double decodeFirstPicture();

  /// In seconds.
  [[nodiscard]] double duration() const;

  /// Seeks to the beginning and decodes the first picture again. The decoder must be open.
  double rewind();

  /// Seeks to the key frame at or before `seconds` and decodes up to the picture shown then.
  /// Returns that picture's time in seconds. The decoder must be open.
  double decodePictureAt(double seconds);

  /// What is decoded when all of a file is.
  enum class Tracks { Both, PictureOnly };

  /// Decodes the first `seconds`; of a file that is shorter, all of it again and again until they
  /// add up to that. Returns the number of pictures.
  int decode(double seconds, Tracks tracks);

  /// What tells the picture that was decoded last from others (PictureMark.h).
  [[nodiscard]] uint64_t mark() const;
  /// The marks of all pictures, in the order in which they are shown.
  [[nodiscard]] std::vector<uint64_t> decodeMarks();

  /// The bytes that showing a paused picture takes at least: those of one picture, as decoded, and
  /// of the samples of the first `seconds`.
  [[nodiscard]] double bytesAtLeast(double seconds);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace floors
