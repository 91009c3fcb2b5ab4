// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "media/Clips.h"

namespace zaffo {

/// A copy of a test clip whose bytes a test changes. The file goes away with this.
class DamagedClip {
 public:
  explicit DamagedClip(const std::string& name)
      : bytes_(read(test::clip(name))),
        folder_((std::filesystem::temp_directory_path() / "zaffo-XXXXXX").string()) {
    if (!mkdtemp(folder_.data())) throw std::runtime_error("no temporary folder: " + folder_);
    path_ = folder_ + "/" + name;
    write(bytes_);
  }
  ~DamagedClip() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  DamagedClip(const DamagedClip&) = delete;
  DamagedClip& operator=(const DamagedClip&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The clip's own.
  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  /// Puts these in the file in place of what it has.
  void write(const std::string& bytes) const {
    std::ofstream file(path_, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path_);
  }

 private:
  static std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  const std::string bytes_;
  std::string folder_;
  std::string path_;
};

}  // namespace zaffo
