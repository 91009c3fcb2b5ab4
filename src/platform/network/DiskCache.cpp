// SPDX-License-Identifier: Apache-2.0
#include "platform/network/DiskCache.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/dispatch/StorageQueue.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/Checksums.h"

namespace zaffo::network {

namespace {

constexpr const char* kSuffix = ".clip";
constexpr std::size_t kNameLength = 64 + 5;
/// Let go of when the disk is full, to get by for a while.
constexpr int64_t kFreedWhenFull = int64_t{8} * 1024 * 1024;
constexpr int kTriesOfLock = 10;
constexpr int64_t kPauseOfLock = 50'000'000;

/// Whether a file is one of the cache's own: the folder may hold others.
bool isEntry(const std::string& name) {
  return name.size() == kNameLength && name.ends_with(kSuffix) &&
         name.find_first_not_of("0123456789abcdef") == kNameLength - 5;
}

}  // namespace

std::shared_ptr<DiskCache> DiskCache::in(std::string folder, int64_t bytes,
                                         std::chrono::milliseconds patience) {
  return std::shared_ptr<DiskCache>(new DiskCache(std::move(folder), bytes, patience));
}

void DiskCache::enter(Readiness ready) {
  queue_->async([self = shared_from_this(), ready = std::move(ready)] {
    self->entering_.push_back(ready);
    if (!self->retry_) self->enterNow(kTriesOfLock);
  });
}

DiskCache::DiskCache(std::string folder, int64_t bytes, std::chrono::milliseconds patience)
    : folder_(std::move(folder)),
      queue_(makeStorageQueue("com.zaffo.cache")),
      patience_(patience),
      bound_(bytes) {}

DiskCache::~DiskCache() {
  if (lock_ >= 0) ::close(lock_);
}

/// Whoever had the folder until now may be about to let go of it: a program that is started anew.
void DiskCache::enterNow(int tries) {
  const int failure = lock_ >= 0 ? 0 : takeLock();
  if (failure == EWOULDBLOCK && tries > 1) {
    retry_ = dispatch_timer_after(kPauseOfLock, queue_, [self = shared_from_this(), tries] {
      const auto timer = std::exchange(self->retry_, nullptr);  // goes with its block, not before
      self->enterNow(tries - 1);
    });
    return;
  }
  const NSErrorPtr error = failure == 0 ? nullptr : errorOf(failure);
  for (const auto& ready : std::exchange(entering_, {})) {
    if (ready) ready(error);
  }
}

/// 0, or an errno.
int DiskCache::takeLock() {
  std::error_code failure;
  std::filesystem::create_directories(folder_, failure);
  const std::string path = pathOf("lock");
  const int lock = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (lock < 0) return errno;
  if (::flock(lock, LOCK_EX | LOCK_NB) != 0) {
    const int number = errno;
    ::close(lock);
    return number;
  }
  lock_ = lock;
  list();
  return 0;
}

NSErrorPtr DiskCache::errorOf(int failure) const {
  const char* const why =
      failure == EWOULDBLOCK ? "is in use by another program." : "cannot be written to.";
  return makePosixError(AVErrorUnknown, "The folder \"" + folder_ + "\" " + why, failure);
}

/// Finds the files that earlier runs left, in the order of their use.
void DiskCache::list() {
  std::vector<std::pair<std::filesystem::file_time_type, std::string>> found;
  std::error_code failure;
  for (std::filesystem::directory_iterator file(folder_, failure), end; !failure && file != end;
       file.increment(failure)) {
    const std::string name = file->path().filename().string();
    std::error_code ignored;
    if (isEntry(name)) found.emplace_back(file->last_write_time(ignored), name);
  }
  std::ranges::sort(found);
  for (const auto& [time, name] : found) {
    std::error_code ignored;
    const auto size = std::filesystem::file_size(pathOf(name), ignored);
    files_[name].lastUse = ++uses_;
    noteSize(name, ignored ? 0 : static_cast<int64_t>(size));
    if (files_[name].bytes == 0) remove(files_.find(name));
  }
  static_cast<void>(makeRoom(0));
}

void DiskCache::find(const std::string& name, EntryHandler handler) {
  queue_->async([self = shared_from_this(), file = media::sha256Of(name) + kSuffix,
                 handler = std::move(handler)] { handler(self->entryFor(file)); });
}

std::shared_ptr<DiskCache::Entry> DiskCache::entryFor(const std::string& file) {
  if (lock_ < 0) return nullptr;
  const auto known = files_.find(file);
  if (known != files_.end()) {
    if (auto entry = known->second.entry.lock()) return entry;
  }
  int failure = 0;
  auto bytes = CacheFile::open(pathOf(file), failure);
  if (!bytes) return nullptr;
  ::utimensat(AT_FDCWD, pathOf(file).c_str(), nullptr, 0);
  noteSize(file, bytes->size());
  auto entry = std::make_shared<Entry>(shared_from_this(), file, std::move(bytes));
  files_[file].lastUse = ++uses_;
  files_[file].entry = entry;
  return entry;
}

void DiskCache::setBound(int64_t bytes) {
  bound_ = bytes;
  queue_->async([self = shared_from_this()] { static_cast<void>(self->makeRoom(0)); });
}

void DiskCache::clear() {
  queue_->async([self = shared_from_this()] {
    for (auto file = self->files_.begin(); file != self->files_.end();) {
      const auto next = std::next(file);
      if (file->second.entry.expired()) self->remove(file);
      file = next;
    }
  });
}

/// False when there is none for so many bytes more.
bool DiskCache::makeRoom(int64_t bytes) {
  while (bytes_ + bytes > bound_) {
    auto oldest = files_.end();
    for (auto file = files_.begin(); file != files_.end(); ++file) {
      if (!file->second.entry.expired()) continue;
      if (oldest == files_.end() || file->second.lastUse < oldest->second.lastUse) oldest = file;
    }
    if (oldest == files_.end()) return false;
    remove(oldest);
  }
  return true;
}

void DiskCache::remove(Files::iterator file) {
  ::unlink(pathOf(file->first).c_str());
  bytes_ -= file->second.bytes;
  files_.erase(file);
}

void DiskCache::noteSize(const std::string& file, int64_t bytes) {
  Known& known = files_[file];
  bytes_ += bytes - std::exchange(known.bytes, bytes);
}

DiskCache::Entry::Entry(std::shared_ptr<DiskCache> cache, std::string file,
                        std::unique_ptr<CacheFile> bytes)
    : cache_(std::move(cache)),
      name_(std::move(file)),
      file_(std::move(bytes)),
      description_(file_->description()),
      ranges_(file_->ranges()) {}

std::optional<CacheDescription> DiskCache::Entry::description() const {
  MutexLock lock(entryMutex_);
  return description_;
}

int64_t DiskCache::Entry::heldUntil(int64_t offset) const {
  MutexLock lock(entryMutex_);
  return ranges_.heldUntil(offset);
}

std::optional<int64_t> DiskCache::Entry::firstHeld(int64_t offset) const {
  MutexLock lock(entryMutex_);
  return ranges_.firstHeld(offset);
}

std::optional<CachedRanges::Run> DiskCache::Entry::runAt(uint64_t generation,
                                                         int64_t offset) const {
  MutexLock lock(entryMutex_);
  return generation == generation_ ? ranges_.runAt(offset) : std::nullopt;
}

bool DiskCache::Entry::isOf(uint64_t generation) const {
  MutexLock lock(entryMutex_);
  return generation == generation_ && !isDropped_;
}

/// Runs `work` on the queue, with the generation of now.
void DiskCache::Entry::post(Work work) {
  MutexLock lock(entryMutex_);
  postWhileLocked(std::move(work));
}

void DiskCache::Entry::postWhileLocked(Work work) {
  cache_->queue_->async([self = shared_from_this(), generation = generation_,
                         work = std::move(work)] { work(*self, generation); });
}

void DiskCache::Entry::read(int64_t offset, int64_t most, BytesHandler handler) {
  post([offset, most, handler = std::move(handler)](Entry& self, uint64_t generation) {
    self.readNow(generation, offset, most, handler);
  });
}

void DiskCache::Entry::readNow(uint64_t generation, int64_t offset, int64_t most,
                               const BytesHandler& handler) {
  std::vector<uint8_t> bytes;
  while (static_cast<int64_t>(bytes.size()) < most) {
    const int64_t position = offset + static_cast<int64_t>(bytes.size());
    const auto run = runAt(generation, position);
    if (!run) break;
    const auto read = file_->read(*run);
    if (!read) {
      startOver();
      return handler({});
    }
    bytes.insert(bytes.end(), read->begin() + (position - run->offset), read->end());
  }
  handler(isOf(generation) ? std::move(bytes) : std::vector<uint8_t>());
}

void DiskCache::Entry::describe(const CacheDescription& description) {
  {
    MutexLock lock(entryMutex_);
    if (isDropped_ || description_ == description) return;
    description_ = description;
  }
  post([description](Entry& self, uint64_t generation) {
    if (self.isRefused_ || !self.isOf(generation)) return;
    if (self.file_->describe(description) != 0) self.isRefused_ = true;
    self.cache_->noteSize(self.name_, self.file_->size());
  });
}

void DiskCache::Entry::write(int64_t offset, std::vector<uint8_t> bytes) {
  const auto count = static_cast<int64_t>(bytes.size());
  if (cache_->waiting_ + count > kMostWaiting) return;
  cache_->waiting_ += count;
  post([offset, bytes = std::move(bytes), count](Entry& self, uint64_t generation) {
    self.writeNow(generation, offset, bytes);
    self.cache_->waiting_ -= count;
  });
}

void DiskCache::Entry::writeNow(uint64_t generation, int64_t offset,
                                std::span<const uint8_t> bytes) {
  const auto count = static_cast<int64_t>(bytes.size());
  if (isRefused_ || !isOf(generation) || firstHeld(offset).value_or(kFarthest) < offset + count) {
    return;
  }
  // One clip leaves room for others.
  if (file_->size() + count > cache_->bound_ / 2 || !cache_->makeRoom(count)) return;
  CachedRanges::Run run;
  int failure = file_->append(offset, bytes, run);
  if (failure == ENOSPC || failure == EDQUOT) {
    static_cast<void>(cache_->makeRoom(cache_->bound_ - cache_->bytes_ + kFreedWhenFull));
    failure = file_->append(offset, bytes, run);
  }
  cache_->noteSize(name_, file_->size());
  if (failure) {
    isRefused_ = true;
    return;
  }
  MutexLock lock(entryMutex_);
  if (generation == generation_) ranges_.add(run);
}

void DiskCache::Entry::startOver() {
  MutexLock lock(entryMutex_);
  startOverWhileLocked();
}

/// In one go: what is written from now on comes behind the clearing.
void DiskCache::Entry::startOverWhileLocked() {
  ++generation_;
  ranges_.clear();
  description_.reset();
  postWhileLocked([](Entry& self, uint64_t) {
    if (self.file_->clear() != 0) self.isRefused_ = true;
    self.cache_->noteSize(self.name_, self.file_->size());
  });
}

void DiskCache::Entry::drop() {
  MutexLock lock(entryMutex_);
  startOverWhileLocked();
  isDropped_ = true;
}

}  // namespace zaffo::network
