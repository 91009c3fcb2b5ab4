// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/source/ByteSource.h"
#include "platform/media/source/LocalFile.h"

namespace zaffo::media {

/// The bytes of a local file. Held is what the system has in memory, and what a Want has brought
/// for as long as that lives. Wants are read one after the other on a thread for files (see
/// StorageQueue), which is all that waits for the disk; one that is let go of is heard at once,
/// whatever the disk does. Thread: any.
class LocalByteSource final : public ByteSource,
                              public std::enable_shared_from_this<LocalByteSource> {
 public:
  /// May wait for the disk. Fails as LocalFile::open does.
  static Result<std::shared_ptr<ByteSource>> open(const std::string& path);

  [[nodiscard]] int64_t readHeld(int64_t offset, std::span<uint8_t> bytes) override;
  [[nodiscard]] std::unique_ptr<Want> want(int64_t offset, int64_t count,
                                           std::function<void()> handler) override;
  [[nodiscard]] std::optional<int64_t> size() const override { return file_->size(); }
  [[nodiscard]] NSErrorPtr error() const override;
  [[nodiscard]] const std::string& name() const override { return file_->path(); }

 private:
  struct Block;
  class BlockWant;

  explicit LocalByteSource(std::shared_ptr<const LocalFile> file) : file_(std::move(file)) {}
  [[nodiscard]] int64_t readBrought(int64_t offset, std::span<uint8_t> bytes);
  [[nodiscard]] const DispatchQueuePtr& queue();
  void bring(Block& block);
  void drop(const Block& block);
  void noteFailure(int64_t result);

  const std::shared_ptr<const LocalFile> file_;
  mutable Mutex blocksMutex_;
  std::vector<std::shared_ptr<Block>> blocks_ ZAFFO_GUARDED_BY(blocksMutex_);  ///< what has come
  DispatchQueuePtr queue_ ZAFFO_GUARDED_BY(blocksMutex_);  ///< made when it is first needed
  int failure_ ZAFFO_GUARDED_BY(blocksMutex_) = 0;         ///< an errno
};

}  // namespace zaffo::media
