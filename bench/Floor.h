#pragma once

#include <memory>
#include <string>

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

  /// Seeks to the beginning and decodes the first picture again. The decoder must be open.
  double rewind();

  /// Seeks to the key frame at or before `seconds` and decodes up to the picture shown then.
  /// Returns that picture's time in seconds. The decoder must be open.
  double decodePictureAt(double seconds);

  /// Decodes picture and sound of the first `seconds`. Returns the number of pictures.
  int decodeBoth(double seconds);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace floors
