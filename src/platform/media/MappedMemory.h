// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace zaffo::media {

/// Memory that is the system's, not the heap's: zero-filled, page aligned, given back the moment
/// it goes. For what is large and comes and goes, which would leave holes in a heap that belongs
/// to the application. Thread: any.
class MappedMemory {
 public:
  /// When the pages come: as each is touched, or all at once, which is quicker where all are used.
  enum class Pages { WhenTouched, AtOnce };

  MappedMemory() = default;
  /// Empty when memory is short, and for no bytes.
  explicit MappedMemory(std::size_t bytes, Pages pages = Pages::WhenTouched);
  MappedMemory(MappedMemory&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  MappedMemory& operator=(MappedMemory&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~MappedMemory();

  [[nodiscard]] uint8_t* data() const { return static_cast<uint8_t*>(data_); }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] explicit operator bool() const { return data_ != nullptr; }

 private:
  void* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace zaffo::media
