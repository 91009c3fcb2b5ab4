// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "platform/media/source/ByteSource.h"
#include "platform/media/source/WantHandler.h"
#include "platform/network/ByteBudget.h"
#include "platform/network/DiskCache.h"
#include "platform/network/HttpDownload.h"
#include "platform/network/PreloadGate.h"
#include "platform/network/RangeStore.h"

namespace zaffo::network {

/// The resource, which also its requests under way and its Wants hold. What was read and is waited
/// for belongs to a mutex, the download to the network's thread; plan() there makes the one follow
/// the other.
class HttpResourceCore final : public ByteBudget::Holder,
                               public HttpDownload::Sink,
                               public PreloadGate::Guest,
                               public std::enable_shared_from_this<HttpResourceCore> {
 public:
  enum class Use { Read, Preload };

  /// A range of bytes that somebody waits for, and whom to tell.
  struct AwaitedRange {
    AwaitedRange(Use to, int64_t from, int64_t until, std::function<void()> call)
        : use(to), begin(from), end(until), handler(std::move(call)) {}

    const Use use;
    const int64_t begin, end;
    media::WantHandler handler;
  };

  HttpResourceCore(URL address, HttpOptions options, HttpClient& client, const ByteBudget& budget)
      : client_(client),
        gate_(client.preloadGate()),
        name_(address->absoluteString()),
        location_(address),
        memory_(budget),
        place_(std::move(address), std::move(options)) {}

  ~HttpResourceCore() override {
    if (isReaderWaiting_) gate_->open();
  }

  [[nodiscard]] int64_t readHeld(Use use, int64_t offset, std::span<uint8_t> bytes);
  void beginPreload();
  void endPreload();
  void add(const std::shared_ptr<AwaitedRange>& range);
  void remove(const std::shared_ptr<AwaitedRange>& range);
  void close();
  void rest();
  void wake();
  [[nodiscard]] bool isWorthKeeping() const;
  void setByteBound(int64_t bound) override;

  [[nodiscard]] media::ByteSource::Ahead ahead() const;
  [[nodiscard]] std::optional<int64_t> size() const {
    MutexLock lock(stateMutex_);
    return isInDoubt_ ? std::nullopt : size_;
  }
  [[nodiscard]] NSErrorPtr error() const {
    MutexLock lock(stateMutex_);
    return error_;
  }
  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] URL location() const {
    MutexLock lock(stateMutex_);
    return location_;
  }

 private:
  /// What the disk was told of the bytes.
  struct Described {
    std::optional<int64_t> size;
    Freshness freshness;
    URL location;

    bool operator==(const Described&) const = default;
  };
  struct Aim {
    enum class Kind { Nothing, GoOn, TakeUp, Start, Stop, AskDisk, Load };
    Kind kind = Kind::Nothing;
    int64_t offset = 0;
    std::optional<int64_t> end;
    bool isInDoubt = false;  ///< it asks whether the bytes are still the same
  };

  bool didReceive(const HttpDownload& from, int64_t offset,
                  std::span<const uint8_t> bytes) override;
  void didChange() override;
  void didEnd(const HttpDownload& from, const NSErrorPtr& error) override;
  void gateOpened() override;

  void planSoonWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  void plan();
  [[nodiscard]] Aim aimWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim aimInDoubtWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim aimAheadWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim bringWhileLocked(int64_t offset) ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim startWhileLocked(int64_t offset) ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim loadWhileLocked(int64_t offset, int64_t end) ZAFFO_REQUIRES(stateMutex_);
  void noteWaitingWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isReadWhileLocked() const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool preloadsWhileLocked() const ZAFFO_REQUIRES(stateMutex_) {
    return preloads_ > 0 && !readsAhead_ && !isReadWhileLocked();
  }
  [[nodiscard]] const AwaitedRange& firstAwaitedWhileLocked() const ZAFFO_REQUIRES(stateMutex_);
  void learnWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool takeWhileLocked(int64_t offset, std::span<const uint8_t> bytes)
      ZAFFO_REQUIRES(stateMutex_);
  void takeOfBeginningWhileLocked(int64_t offset, std::span<const uint8_t> bytes)
      ZAFFO_REQUIRES(stateMutex_);
  void keepWhileLocked(int64_t offset, std::span<const uint8_t> bytes) ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isWorthFinishing() const;
  [[nodiscard]] bool readsOnWhileLocked() const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isMetWhileLocked(const AwaitedRange& range) const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isWantedWhileLocked(int64_t offset) const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] int64_t endOfWhileLocked(const AwaitedRange& range) const
      ZAFFO_REQUIRES(stateMutex_) {
    return size_ ? std::min(range.end, std::max(range.begin, *size_)) : range.end;
  }
  [[nodiscard]] int64_t aheadWhileLocked() const ZAFFO_REQUIRES(stateMutex_);

  // The disk's bytes.
  void askDisk();
  void diskAnswered(std::shared_ptr<DiskCache::Entry> entry);
  void adoptWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  void load(int64_t offset, int64_t end);
  void didLoad(int64_t offset, const std::optional<std::vector<uint8_t>>& bytes);
  void describeWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  void leaveDiskWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  void saveBlocksWhileLocked(int64_t begin, int64_t end) ZAFFO_REQUIRES(stateMutex_);
  void saveAllWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  void saveWhileLocked(int64_t begin, int64_t end) ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isOnDiskWhileLocked(int64_t offset) const ZAFFO_REQUIRES(stateMutex_) {
    return disk_ && disk_->heldUntil(offset) > offset;
  }

  HttpClient& client_;
  const std::shared_ptr<PreloadGate> gate_;
  const std::string name_;

  mutable Mutex stateMutex_;
  int64_t bound_ ZAFFO_GUARDED_BY(stateMutex_) = ByteBudget::kOfResource;
  RangeStore store_ ZAFFO_GUARDED_BY(stateMutex_){ByteBudget::kOfResource};
  std::list<std::shared_ptr<AwaitedRange>> awaited_ ZAFFO_GUARDED_BY(stateMutex_);
  std::optional<int64_t> size_ ZAFFO_GUARDED_BY(stateMutex_);
  NSErrorPtr error_ ZAFFO_GUARDED_BY(stateMutex_);
  int64_t front_ ZAFFO_GUARDED_BY(stateMutex_) = 0;  // where reading has come to
  Freshness freshness_ ZAFFO_GUARDED_BY(stateMutex_);
  URL location_ ZAFFO_GUARDED_BY(stateMutex_);
  ByteBudget::Count memory_;  // set with the mutex held
  bool wasKept_ ZAFFO_GUARDED_BY(stateMutex_) = false;
  int64_t keptUntil_ ZAFFO_GUARDED_BY(stateMutex_) = 0;   // from the beginning, without a gap
  bool isInDoubt_ ZAFFO_GUARDED_BY(stateMutex_) = false;  // the bytes that are held
  int preloads_ ZAFFO_GUARDED_BY(stateMutex_) = 0;
  bool isReaderWaiting_ ZAFFO_GUARDED_BY(stateMutex_) = false;  // as the gate knows
  bool isPlanned_ ZAFFO_GUARDED_BY(stateMutex_) = false;
  bool readsAhead_ ZAFFO_GUARDED_BY(stateMutex_) = false;
  bool isPaused_ ZAFFO_GUARDED_BY(stateMutex_) = false;
  bool isOver_ ZAFFO_GUARDED_BY(stateMutex_) = false;           // the download
  bool isBeginningOver_ ZAFFO_GUARDED_BY(stateMutex_) = false;  // that of the beginning
  bool isIdle_ ZAFFO_GUARDED_BY(stateMutex_) = false;           // nothing is under way
  bool isClosed_ ZAFFO_GUARDED_BY(stateMutex_) = false;

  std::shared_ptr<DiskCache::Entry> disk_ ZAFFO_GUARDED_BY(stateMutex_);
  bool isFull_ ZAFFO_GUARDED_BY(stateMutex_) = false;  // what the disk gave ahead was not kept

  // The network's thread alone.
  RemotePlace place_;
  std::unique_ptr<HttpDownload> download_;
  // Goes on for a while beside the other when the index turns out to be at the end.
  std::unique_ptr<HttpDownload> beginning_;
  bool hasBeginningGoneOn_ = false;  // since then
  bool asksInDoubt_ = false;         // the download, until there is an answer
  enum class Disk { Unasked, Asked, Known };
  Disk diskState_ = place_.options.cache ? Disk::Unasked : Disk::Known;
  bool isLoading_ = false;
  uint64_t changes_ = 0;  // of the representation
  std::optional<Described> described_;
};

}  // namespace zaffo::network
