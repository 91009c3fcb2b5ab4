// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/foundation/NSError.h"
#include "platform/network/CacheFile.h"

namespace zaffo::network {

/// Bytes of remote resources in a folder of the application's, a file for each, so that a second
/// start of the program fetches nothing twice. Above its bound the file that was used least
/// recently goes, save those in use. One process has a folder at a time; a second one does without.
///
/// Nothing here waits for the disk: that is what a queue of its own is for. A disk that is full, or
/// fails, only leaves bytes out; what is damaged is dropped. Thread: any.
class DiskCache : public std::enable_shared_from_this<DiskCache> {
 public:
  static constexpr int64_t kUsualBytes = int64_t{256} * 1024 * 1024;
  /// No more wait to be written; what comes then is left out.
  static constexpr int64_t kMostWaiting = int64_t{4} * 1024 * 1024;
  /// A disk that does not answer for so long is done without: the network is there.
  static constexpr std::chrono::milliseconds kUsualPatience{250};

  class Entry;
  /// Why the folder cannot be used; null when it can. Called on the cache's queue.
  using Readiness = std::function<void(const NSErrorPtr& error)>;
  /// Null where there can be no entry. Called on the cache's queue.
  using EntryHandler = std::function<void(std::shared_ptr<Entry> entry)>;

  /// Has no entries until the folder was entered.
  [[nodiscard]] static std::shared_ptr<DiskCache> in(
      std::string folder, int64_t bytes = kUsualBytes,
      std::chrono::milliseconds patience = kUsualPatience);
  /// Makes the folder where there is none, and finds what is in it. Where that failed it may be
  /// tried again. `ready` may be null.
  void enter(Readiness ready);
  ~DiskCache();
  DiskCache(const DiskCache&) = delete;
  DiskCache& operator=(const DiskCache&) = delete;

  /// The entry of a name, such as an address, from which the file's name tells nothing.
  void find(const std::string& name, EntryHandler handler);
  /// It may take up so many bytes from now on.
  void setBound(int64_t bytes);
  /// Drops all that is not in use.
  void clear();
  /// Bytes that the files take up, as far as is known.
  [[nodiscard]] int64_t bytes() const { return bytes_; }
  /// How long the network's thread waits for an answer.
  [[nodiscard]] std::chrono::milliseconds patience() const { return patience_; }

 private:
  struct Known {
    int64_t bytes = 0;
    uint64_t lastUse = 0;
    std::weak_ptr<Entry> entry;
  };
  using Files = std::map<std::string, Known>;

  DiskCache(std::string folder, int64_t bytes, std::chrono::milliseconds patience);

  // On the queue.
  void enterNow(int tries);
  [[nodiscard]] int takeLock();
  [[nodiscard]] NSErrorPtr errorOf(int failure) const;
  void list();
  [[nodiscard]] std::shared_ptr<Entry> entryFor(const std::string& file);
  [[nodiscard]] bool makeRoom(int64_t bytes);
  void remove(Files::iterator file);
  void noteSize(const std::string& file, int64_t bytes);
  [[nodiscard]] std::string pathOf(const std::string& file) const { return folder_ + "/" + file; }

  const std::string folder_;
  const DispatchQueuePtr queue_;
  const std::chrono::milliseconds patience_;
  std::atomic<int64_t> bound_;
  std::atomic<int64_t> bytes_{0};
  std::atomic<int64_t> waiting_{0};  // bytes to be written

  // The queue's alone.
  int lock_ = -1;  // a descriptor, as long as the folder is this process's
  std::vector<Readiness> entering_;
  DispatchTimerPtr retry_;  // as long as another has the folder, and may be about to let go of it
  Files files_;
  uint64_t uses_ = 0;
};

/// What the cache has of one resource. All bytes belong to the description that was given last.
/// Thread: any.
class DiskCache::Entry : public std::enable_shared_from_this<DiskCache::Entry> {
 public:
  /// Called on the cache's queue; empty when the bytes are damaged or gone, and dropped.
  using BytesHandler = std::function<void(std::vector<uint8_t> bytes)>;

  Entry(std::shared_ptr<DiskCache> cache, std::string file, std::unique_ptr<CacheFile> bytes);

  /// Null where nothing is known yet.
  [[nodiscard]] std::optional<CacheDescription> description() const;
  /// The end of what is here without a gap from `offset` on; `offset` when it is not.
  [[nodiscard]] int64_t heldUntil(int64_t offset) const;
  /// The first byte from `offset` on that is here; null when there is none.
  [[nodiscard]] std::optional<int64_t> firstHeld(int64_t offset) const;

  /// Reads what is here from `offset` on without a gap, `most` bytes at most.
  void read(int64_t offset, int64_t most, BytesHandler handler);
  /// The bytes that are here, and those to come, are of this.
  void describe(const CacheDescription& description);
  /// Keeps bytes, as soon as the disk has taken them; at most CacheFile::kLongestRecord.
  void write(int64_t offset, std::vector<uint8_t> bytes);
  /// Drops all bytes: others will come.
  void startOver();
  /// Drops all bytes, and takes none any more.
  void drop();

 private:
  // On the queue.
  void readNow(uint64_t generation, int64_t offset, int64_t most, const BytesHandler& handler);
  void writeNow(uint64_t generation, int64_t offset, std::span<const uint8_t> bytes);
  [[nodiscard]] std::optional<CachedRanges::Run> runAt(uint64_t generation, int64_t offset) const;
  [[nodiscard]] bool isOf(uint64_t generation) const;
  using Work = std::function<void(Entry&, uint64_t generation)>;
  void post(Work work);
  void postWhileLocked(Work work) ZAFFO_REQUIRES(entryMutex_);
  void startOverWhileLocked() ZAFFO_REQUIRES(entryMutex_);

  const std::shared_ptr<DiskCache> cache_;
  const std::string name_;
  const std::unique_ptr<CacheFile> file_;  // the queue's alone
  bool isRefused_ = false;                 // the queue's alone: the disk takes no more

  mutable Mutex entryMutex_;
  std::optional<CacheDescription> description_ ZAFFO_GUARDED_BY(entryMutex_);
  CachedRanges ranges_ ZAFFO_GUARDED_BY(entryMutex_);
  uint64_t generation_ ZAFFO_GUARDED_BY(entryMutex_) = 0;  // counts the fresh starts
  bool isDropped_ ZAFFO_GUARDED_BY(entryMutex_) = false;
};

}  // namespace zaffo::network
