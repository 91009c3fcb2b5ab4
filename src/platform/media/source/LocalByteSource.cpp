// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/LocalByteSource.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/dispatch/StorageQueue.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/WantHandler.h"

namespace zaffo::media {

/// What is wanted. Written on the storage queue, until it is one of the blocks that have come.
struct LocalByteSource::Block {
  Block(int64_t from, int64_t howMany, std::function<void()> call)
      : offset(from), count(howMany), handler(std::move(call)) {}

  [[nodiscard]] bool covers(int64_t place) const {
    return place >= offset && place < offset + count;
  }

  const int64_t offset, count;
  WantHandler handler;
  std::vector<uint8_t> bytes;
  int64_t last = 0;  ///< what the read behind them gave: 0 at the end, a negative errno
};

class LocalByteSource::BlockWant final : public ByteSource::Want {
 public:
  BlockWant(std::shared_ptr<LocalByteSource> source, std::shared_ptr<Block> block)
      : source_(std::move(source)), block_(std::move(block)) {}
  ~BlockWant() override {
    block_->handler.cancel();
    source_->drop(*block_);
  }

 private:
  const std::shared_ptr<LocalByteSource> source_;
  const std::shared_ptr<Block> block_;
};

Result<std::shared_ptr<ByteSource>> LocalByteSource::open(const std::string& path) {
  auto file = LocalFile::open(path);
  if (!file) return file.error();
  return std::shared_ptr<ByteSource>(new LocalByteSource(*std::move(file)));
}

int64_t LocalByteSource::readHeld(int64_t offset, std::span<uint8_t> bytes) {
  const int64_t count = file_->readHeld(offset, bytes);
  if (count == -EAGAIN) return readBrought(offset, bytes);
  noteFailure(count);
  return count;
}

int64_t LocalByteSource::readBrought(int64_t offset, std::span<uint8_t> bytes) {
  MutexLock lock(blocksMutex_);
  for (const auto& block : blocks_) {
    if (!block->covers(offset)) continue;
    const auto from = static_cast<std::size_t>(offset - block->offset);
    if (from >= block->bytes.size()) return block->last;
    const auto there = std::span(block->bytes).subspan(from);
    const std::size_t count = std::min(there.size(), bytes.size());
    std::copy_n(there.begin(), count, bytes.begin());
    return static_cast<int64_t>(count);
  }
  return -EAGAIN;
}

std::unique_ptr<ByteSource::Want> LocalByteSource::want(int64_t offset, int64_t count,
                                                        std::function<void()> handler) {
  auto block = std::make_shared<Block>(offset, count, std::move(handler));
  queue()->async([self = shared_from_this(), block] {
    if (!block->handler.isPending()) return;
    self->bring(*block);
    {
      MutexLock lock(self->blocksMutex_);
      if (block->handler.isPending()) self->blocks_.push_back(block);
    }
    block->handler.call();
  });
  return std::make_unique<BlockWant>(shared_from_this(), std::move(block));
}

void LocalByteSource::bring(Block& block) {
  block.bytes.resize(static_cast<std::size_t>(block.count));
  std::size_t got = 0;
  do {
    block.last = file_->readAt(block.offset + static_cast<int64_t>(got),
                               std::span(block.bytes).subspan(got));
    if (block.last > 0) got += static_cast<std::size_t>(block.last);
  } while (block.last > 0 && got < block.bytes.size());
  block.bytes.resize(got);
  noteFailure(block.last);
}

void LocalByteSource::drop(const Block& block) {
  MutexLock lock(blocksMutex_);
  std::erase_if(blocks_, [&block](const auto& one) { return one.get() == &block; });
}

const DispatchQueuePtr& LocalByteSource::queue() {
  MutexLock lock(blocksMutex_);
  if (!queue_) queue_ = makeStorageQueue("com.zaffo.file");
  return queue_;
}

void LocalByteSource::noteFailure(int64_t result) {
  if (result >= 0) return;
  MutexLock lock(blocksMutex_);
  failure_ = static_cast<int>(-result);
}

NSErrorPtr LocalByteSource::error() const {
  MutexLock lock(blocksMutex_);
  if (!failure_) return nullptr;
  return makePosixError(AVErrorUnknown, "The file \"" + name() + "\" cannot be read.", failure_);
}

}  // namespace zaffo::media
