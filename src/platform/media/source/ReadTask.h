// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "platform/media/source/ByteSource.h"
#include "platform/media/source/Fiber.h"

namespace zaffo::media {

/// Work that reads from a ByteSource as if all bytes were there. Where they are not, it is left in
/// the middle, and gone on with when they have come: no thread waits for them. Thread: one at a
/// time; the ready handler is called on any.
class ReadTask {
 public:
  /// What a read asks the source for at a time, at most.
  static constexpr std::size_t kMostWantedBytes = 1024 * 1024;

  explicit ReadTask(std::shared_ptr<ByteSource> bytes) : bytes_(std::move(bytes)) {}
  ~ReadTask() { abandon(); }
  ReadTask(const ReadTask&) = delete;
  ReadTask& operator=(const ReadTask&) = delete;

  /// Called when run() may get further. Set while nothing is under way.
  void setReadyHandler(std::function<void()> handler) { ready_ = std::move(handler); }

  /// Starts `work`, which throws nothing; or goes on with the one that is under way. Whether it has
  /// ended; if not, bytes are missing, and the ready handler will tell when they are here.
  [[nodiscard]] bool run(const std::function<void()>& work);
  [[nodiscard]] bool isUnderWay() const { return fiber_ != nullptr; }
  /// Ends what is under way: every read fails from then on.
  void abandon();

  // For the work.

  /// The next bytes from `offset` on, at least one: how many, 0 at the end; a negative errno when
  /// they cannot be had, -ECANCELED when the work was abandoned.
  [[nodiscard]] int64_t read(int64_t offset, std::span<uint8_t> bytes);
  /// The same for as many as there are.
  [[nodiscard]] int64_t readAll(int64_t offset, std::span<uint8_t> bytes);
  [[nodiscard]] ByteSource& bytes() const { return *bytes_; }
  /// Where bytes were missing last.
  [[nodiscard]] int64_t lastMissing() const { return missing_.offset; }

 private:
  struct Stretch {
    int64_t offset = 0;
    int64_t count = 0;
    bool operator==(const Stretch&) const = default;
  };

  [[nodiscard]] int64_t readSome(int64_t offset, std::span<uint8_t> bytes, int64_t least);
  void wantMissing();
  void end();

  const std::shared_ptr<ByteSource> bytes_;
  std::function<void()> ready_;
  std::unique_ptr<Fiber> fiber_;  ///< null while nothing is under way
  bool isAbandoned_ = false;
  Stretch missing_, wanted_;
  std::atomic<bool> hasCome_ = false;  ///< what is wanted
  std::unique_ptr<ByteSource::Want> want_;
};

}  // namespace zaffo::media
