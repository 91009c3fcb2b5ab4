// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpResourceCore.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>
#include <utility>
#include <vector>

#include "platform/TimeSource.h"
#include "platform/foundation/MakeError.h"
#include "platform/network/DiskAnswer.h"
#include "platform/network/NetworkError.h"

namespace zaffo::network {

namespace {

/// Bytes that come sooner than the answer to another request.
constexpr int64_t kWorthReading = int64_t{128} * 1024;
/// What a preload asks for at a time.
constexpr int64_t kPreloadPiece = int64_t{512} * 1024;
/// So much of a clip is brought though its index is at the end, and asked for meanwhile: the first
/// picture and sound are there.
constexpr int64_t kBeginning = int64_t{256} * 1024;
/// What is read from disk at a time.
constexpr int64_t kLoadPiece = int64_t{256} * 1024;

bool mayPass(const NSError& error) {
  switch (error.code()) {
    case NSURLErrorTimedOut:
    case NSURLErrorCannotFindHost:
    case NSURLErrorCannotConnectToHost:
    case NSURLErrorNetworkConnectionLost:
    case NSURLErrorResourceUnavailable:
    case NSURLErrorSecureConnectionFailed:
      return true;
    default:
      return false;
  }
}

}  // namespace

int64_t HttpResourceCore::readHeld(Use use, int64_t offset, std::span<uint8_t> bytes) {
  if (offset < 0) return -EINVAL;
  MutexLock lock(stateMutex_);
  if (isInDoubt_) return error_ ? -EIO : -EAGAIN;
  if (bytes.empty() || offset > kFarthest || (size_ && offset >= *size_)) return 0;
  const int64_t count = store_.read(offset, bytes);
  if (count == 0) return error_ ? -EIO : -EAGAIN;
  if (use == Use::Preload && readsAhead_) return count;
  front_ = offset + count;
  if (use == Use::Preload || !readsOnWhileLocked()) return count;
  readsAhead_ = true;
  planSoonWhileLocked();
  return count;
}

media::ByteSource::Ahead HttpResourceCore::ahead() const {
  MutexLock lock(stateMutex_);
  if (isInDoubt_) return {false, false, false, 0};
  const int64_t limit = size_.value_or(std::numeric_limits<int64_t>::max());
  const int64_t missing = store_.firstMissing(front_, limit);
  const bool isRest = size_ && missing >= *size_;
  const int64_t count = missing - std::min(front_, missing);
  const bool isAll = isRest && store_.firstMissing(0, front_) >= front_;
  return {isAll, isRest, isRest || count >= aheadWhileLocked(), count};
}

/// Whether so much was read that it is worth another turn of the network's thread: half of what is
/// held ahead or, of what was kept, nearly all.
bool HttpResourceCore::readsOnWhileLocked() const {
  if (!readsAhead_ && !wasKept_) return false;
  if (readsAhead_ && !isPaused_ && !isOver_ && (!isIdle_ || isFull_)) return false;
  const int64_t least =
      readsAhead_ ? aheadWhileLocked() / 2 : std::min(kWorthReading, keptUntil_ / 4);
  const int64_t limit = size_ ? std::min(front_ + least, *size_) : front_ + least;
  return store_.firstMissing(front_, limit) < limit;
}

/// How much is brought ahead of the reader, or for a preload.
int64_t HttpResourceCore::aheadWhileLocked() const {
  return preloadsWhileLocked() ? std::min(bound_ / 2, kPreloadPiece) : bound_ / 2;
}

void HttpResourceCore::add(const std::shared_ptr<AwaitedRange>& range) {
  MutexLock lock(stateMutex_);
  store_.pin(range->begin, range->end);
  awaited_.push_back(range);
  if (range->use == Use::Read || !readsAhead_) front_ = range->begin;
  if (range->use == Use::Read) readsAhead_ = true;
  isFull_ = false;
  if (error_ && mayPass(*error_)) error_ = nullptr;
  noteWaitingWhileLocked();
  planSoonWhileLocked();
}

void HttpResourceCore::remove(const std::shared_ptr<AwaitedRange>& range) {
  range->handler.cancel();
  MutexLock lock(stateMutex_);
  store_.unpin(range->begin, range->end);
  if (awaited_.remove(range) == 0) return;
  if (isReadWhileLocked()) return;
  if (range->use == Use::Read) readsAhead_ = false;
  planSoonWhileLocked();
}

void HttpResourceCore::beginPreload() {
  MutexLock lock(stateMutex_);
  if (preloads_++ == 0) gate_->add(weak_from_this());
}

void HttpResourceCore::endPreload() {
  MutexLock lock(stateMutex_);
  if (--preloads_ == 0) gate_->remove(*this);
  planSoonWhileLocked();
}

void HttpResourceCore::gateOpened() {
  MutexLock lock(stateMutex_);
  planSoonWhileLocked();
}

/// Whether somebody who reads waits.
bool HttpResourceCore::isReadWhileLocked() const {
  return std::ranges::any_of(awaited_, [](const auto& range) { return range->use == Use::Read; });
}

/// Closes the gate for as long as that is so.
void HttpResourceCore::noteWaitingWhileLocked() {
  const bool waits = !isClosed_ && isReadWhileLocked();
  if (waits == std::exchange(isReaderWaiting_, waits)) return;
  waits ? gate_->close() : gate_->open();
}

void HttpResourceCore::close() {
  MutexLock lock(stateMutex_);
  isClosed_ = true;
  disk_.reset();
  store_.clear();
  memory_.set(0);
  planSoonWhileLocked();
}

void HttpResourceCore::rest() {
  MutexLock lock(stateMutex_);
  isClosed_ = true;
  saveAllWhileLocked();
  readsAhead_ = false;
  planSoonWhileLocked();
}

void HttpResourceCore::wake() {
  MutexLock lock(stateMutex_);
  isClosed_ = false;
  wasKept_ = true;
  store_.wantFirst();
  keptUntil_ = store_.firstMissing(0, std::numeric_limits<int64_t>::max());
  front_ = 0;
  if (!freshness_.isFresh(TimeSource::now())) isInDoubt_ = true;
}

bool HttpResourceCore::isWorthKeeping() const {
  MutexLock lock(stateMutex_);
  return !error_ && freshness_.mayKeep() && store_.memory() > 0;
}

void HttpResourceCore::setByteBound(int64_t bound) {
  MutexLock lock(stateMutex_);
  bound_ = bound;
  isFull_ = false;
  store_.setBound(bound);
  memory_.set(store_.memory());
}

void HttpResourceCore::planSoonWhileLocked() {
  if (std::exchange(isPlanned_, true)) return;
  NetworkLoop::shared().post([self = shared_from_this()] { self->plan(); });
}

/// Tells those who have what they waited for, then has the download bring what is to come next.
void HttpResourceCore::plan() {
  std::vector<std::shared_ptr<AwaitedRange>> met;
  Aim aim;
  {
    MutexLock lock(stateMutex_);
    isPlanned_ = false;
    if (std::exchange(isOver_, false)) download_.reset();
    if (std::exchange(isBeginningOver_, false)) beginning_.reset();
    for (const auto& range : awaited_) {
      if (!isClosed_ && isMetWhileLocked(*range)) met.push_back(range);
    }
    std::erase_if(awaited_, [this](const auto& range)
                                ZAFFO_REQUIRES(stateMutex_) { return isMetWhileLocked(*range); });
    noteWaitingWhileLocked();
    aim = aimWhileLocked();
    if (aim.kind == Aim::Kind::Start && !isPaused_ && isWorthFinishing()) {
      beginning_ = std::move(download_);
      hasBeginningGoneOn_ = false;
    }
    const bool movesDownload = aim.kind == Aim::Kind::GoOn || aim.kind == Aim::Kind::TakeUp ||
                               aim.kind == Aim::Kind::Start;
    if (movesDownload || aim.kind == Aim::Kind::Stop) isPaused_ = false;
    isIdle_ = aim.kind == Aim::Kind::Nothing && !download_ && !isLoading_;
  }
  if (aim.kind == Aim::Kind::AskDisk) askDisk();
  if (aim.kind == Aim::Kind::Load) load(aim.offset, *aim.end);
  if (aim.kind == Aim::Kind::Stop || aim.kind == Aim::Kind::Start) download_.reset();
  if (aim.kind == Aim::Kind::Stop || aim.isInDoubt) beginning_.reset();
  if (aim.kind == Aim::Kind::TakeUp) download_ = std::move(beginning_);
  if (aim.kind == Aim::Kind::GoOn) download_->resume();
  if (aim.kind == Aim::Kind::Start) {
    asksInDoubt_ = aim.isInDoubt;
    if (aim.isInDoubt) {
      place_.representation.doubt();
      place_.startOver();
    }
    download_ = std::make_unique<HttpDownload>(client_, place_, *this, aim.offset, aim.end);
  }
  for (const auto& range : met) range->handler.call();
}

HttpResourceCore::Aim HttpResourceCore::aimWhileLocked() {
  if (isClosed_ || error_) return {Aim::Kind::Stop, 0, {}};
  if (diskState_ == Disk::Asked) return {};
  if (diskState_ == Disk::Unasked && !awaited_.empty()) return {Aim::Kind::AskDisk, 0, {}};
  // What is under way finds its bytes refused, and goes on when the gate opens.
  if (preloadsWhileLocked() && !gate_->isOpen()) return {};
  if (isInDoubt_) return aimInDoubtWhileLocked();
  if (awaited_.empty()) return aimAheadWhileLocked();
  const AwaitedRange& range = firstAwaitedWhileLocked();
  const int64_t end = endOfWhileLocked(range);
  const int64_t missing = store_.firstMissing(range.begin, end);
  if (isOnDiskWhileLocked(missing)) return loadWhileLocked(missing, end);
  if (!download_) return bringWhileLocked(missing);
  const int64_t position = download_->position();
  const bool isBeyond = download_->end() && missing >= *download_->end();
  const bool isNear = missing - position <= kWorthReading || !place_.representation.servesRanges();
  if (position <= missing && isNear && !isBeyond) return {Aim::Kind::GoOn, 0, {}};
  return bringWhileLocked(missing);
}

HttpResourceCore::Aim HttpResourceCore::aimInDoubtWhileLocked() {
  if (awaited_.empty()) return {Aim::Kind::Stop, 0, {}};
  if (download_ && asksInDoubt_) return {};
  return {Aim::Kind::Start, 0, {}, true};
}

HttpResourceCore::Aim HttpResourceCore::aimAheadWhileLocked() {
  // A piece is brought to its end: the next one then comes on the same connection.
  if (preloadsWhileLocked()) return {isPaused_ ? Aim::Kind::GoOn : Aim::Kind::Nothing, 0, {}};
  if (!readsAhead_) return {Aim::Kind::Stop, 0, {}};
  const int64_t limit = front_ + aheadWhileLocked();
  const int64_t missing = store_.firstMissing(front_, limit);
  if (missing >= limit || (size_ && missing >= *size_)) return {};
  if (isOnDiskWhileLocked(missing)) return isFull_ ? Aim() : loadWhileLocked(missing, limit);
  if (!download_) return bringWhileLocked(missing);
  return {Aim::Kind::GoOn, 0, {}};
}

/// By what brings the beginning, or by a new download.
HttpResourceCore::Aim HttpResourceCore::bringWhileLocked(int64_t offset) {
  // One that brought nothing since may be dead.
  const bool isNear = beginning_ && hasBeginningGoneOn_ && beginning_->position() <= offset &&
                      offset - beginning_->position() <= kWorthReading;
  return isNear ? Aim{Aim::Kind::TakeUp, 0, {}} : startWhileLocked(offset);
}

/// Whether the download brings what will be wanted as soon as the index at the end is known.
bool HttpResourceCore::isWorthFinishing() const {
  return download_ && !download_->end() && download_->position() > 0 &&
         download_->position() < kBeginning && place_.representation.servesRanges();
}

HttpResourceCore::Aim HttpResourceCore::startWhileLocked(int64_t offset) {
  if (!place_.representation.servesRanges()) return {Aim::Kind::Start, 0, {}};
  // Of sound and picture the one comes just before the other, and is wanted a moment later.
  const auto before = store_.heldEndBefore(offset);
  if (before && offset - *before <= kWorthReading) offset = *before;
  auto end = store_.firstHeld(offset);
  const auto onDisk = disk_ ? disk_->firstHeld(offset) : std::nullopt;
  if (onDisk) end = std::min(end.value_or(*onDisk), *onDisk);
  if (preloadsWhileLocked()) {
    end = std::min(end.value_or(offset + kPreloadPiece), offset + kPreloadPiece);
  }
  return {Aim::Kind::Start, offset, end};
}

HttpResourceCore::Aim HttpResourceCore::loadWhileLocked(int64_t offset, int64_t end) {
  if (isLoading_) return {};
  return {Aim::Kind::Load, offset, std::min(end, offset + kLoadPiece)};
}

/// That of one who reads, if there is one.
const HttpResourceCore::AwaitedRange& HttpResourceCore::firstAwaitedWhileLocked() const {
  const auto read =
      std::ranges::find_if(awaited_, [](const auto& range) { return range->use == Use::Read; });
  return read == awaited_.end() ? *awaited_.front() : **read;
}

bool HttpResourceCore::isMetWhileLocked(const AwaitedRange& range) const {
  const int64_t end = endOfWhileLocked(range);
  return error_ || (!isInDoubt_ && store_.firstMissing(range.begin, end) >= end);
}

/// Whether bytes at this place are on the way to something that is wanted.
bool HttpResourceCore::isWantedWhileLocked(int64_t offset) const {
  return std::any_of(awaited_.begin(), awaited_.end(),
                     [&](const auto& range) { return range->end > offset; });
}

/// What the download found out.
void HttpResourceCore::learnWhileLocked() {
  size_ = place_.representation.size();
  freshness_ = place_.freshness;
  location_ = place_.current;
  if (asksInDoubt_ && !place_.representation.isInDoubt()) {
    asksInDoubt_ = false;
    isInDoubt_ = false;
  }
  describeWhileLocked();
}

bool HttpResourceCore::didReceive(const HttpDownload& from, int64_t offset,
                                  std::span<const uint8_t> bytes) {
  bool isTaken = true;
  {
    MutexLock lock(stateMutex_);
    if (&from == beginning_.get()) {
      takeOfBeginningWhileLocked(offset, bytes);
    } else {
      isTaken = takeWhileLocked(offset, bytes);
    }
    memory_.set(store_.memory());
  }
  memory_.makeRoom();
  return isTaken;
}

void HttpResourceCore::didChange() {
  MutexLock lock(stateMutex_);
  ++changes_;
  described_.reset();
  if (disk_) disk_->startOver();
  store_.clear();
  memory_.set(store_.memory());
}

bool HttpResourceCore::takeWhileLocked(int64_t offset, std::span<const uint8_t> bytes) {
  learnWhileLocked();
  isPaused_ = (preloadsWhileLocked() && !gate_->isOpen()) ||
              (!isWantedWhileLocked(offset) && offset >= front_ + aheadWhileLocked());
  if (isPaused_) return false;
  if (preloadsWhileLocked()) store_.wantFirst();
  keepWhileLocked(offset, bytes);
  const int64_t end = offset + static_cast<int64_t>(bytes.size());
  if (size_ && end < *size_ && store_.firstMissing(end, *size_) >= *size_) {
    isOver_ = true;  // what it would bring yet is here, such as the index
    planSoonWhileLocked();
  }
  return true;
}

void HttpResourceCore::takeOfBeginningWhileLocked(int64_t offset, std::span<const uint8_t> bytes) {
  if (isBeginningOver_ || isClosed_) return;
  hasBeginningGoneOn_ = true;
  keepWhileLocked(offset, bytes);
  if (offset + static_cast<int64_t>(bytes.size()) < kBeginning) return;
  isBeginningOver_ = true;
  planSoonWhileLocked();
}

void HttpResourceCore::keepWhileLocked(int64_t offset, std::span<const uint8_t> bytes) {
  if (!store_.write(offset, bytes)) {
    error_ = makePosixError(AVErrorUnknown, "Memory is short.", ENOMEM);
  }
  saveBlocksWhileLocked(offset, offset + static_cast<int64_t>(bytes.size()));
  const bool isMet = std::any_of(
      awaited_.begin(), awaited_.end(),
      [this](const auto& range) ZAFFO_REQUIRES(stateMutex_) { return isMetWhileLocked(*range); });
  if (isMet) planSoonWhileLocked();
}

void HttpResourceCore::didEnd(const HttpDownload& from, const NSErrorPtr& error) {
  MutexLock lock(stateMutex_);
  if (&from == beginning_.get()) {
    isBeginningOver_ = true;
    return planSoonWhileLocked();
  }
  learnWhileLocked();
  error_ = error;
  // What is wrong with the clip, or who may see it, is so with what was kept of it.
  if (error && !mayPass(*error)) leaveDiskWhileLocked();
  isOver_ = true;
  planSoonWhileLocked();
}

void HttpResourceCore::askDisk() {
  diskState_ = Disk::Asked;
  using EntryPtr = std::shared_ptr<DiskCache::Entry>;
  awaitDisk<EntryPtr>(
      place_.options.cache->patience(),
      [this](DiskCache::EntryHandler handler) {
        place_.options.cache->find(place_.options.identityOf(*place_.address), std::move(handler));
      },
      [weak = weak_from_this()](std::optional<EntryPtr> entry) {
        if (const auto self = weak.lock()) self->diskAnswered(entry ? *entry : nullptr);
      });
}

/// Whoever asked the network meanwhile would have read from it.
void HttpResourceCore::diskAnswered(std::shared_ptr<DiskCache::Entry> entry) {
  diskState_ = Disk::Known;
  MutexLock lock(stateMutex_);
  disk_ = std::move(entry);
  if (disk_) adoptWhileLocked();
  planSoonWhileLocked();
}

/// Takes over what an earlier run of the program knew.
void HttpResourceCore::adoptWhileLocked() {
  const auto known = disk_->description();
  if (!known || !disk_->firstHeld(0)) return;
  place_.representation.adopt(known->validator, known->size, known->servesRanges);
  const int64_t now = std::time(nullptr);
  // What it led to for a while only is asked for anew.
  const URL location = NSURL::URLWithString(known->location);
  if (location && isRemote(*location)) place_.current = location_ = location;
  const bool wasClockSetBack = now < known->storedAt;
  place_.freshness.adopt(wasClockSetBack ? 0 : known->freshUntil - now, TimeSource::now());
  size_ = known->size;
  freshness_ = place_.freshness;
  isInDoubt_ = !freshness_.isFresh(TimeSource::now());
  described_ = {size_, freshness_, location_};
}

void HttpResourceCore::load(int64_t offset, int64_t end) {
  MutexLock lock(stateMutex_);
  if (!disk_) return;
  isLoading_ = true;
  using Bytes = std::vector<uint8_t>;
  awaitDisk<Bytes>(
      place_.options.cache->patience(),
      [disk = disk_, offset, end](DiskCache::Entry::BytesHandler handler) {
        disk->read(offset, end - offset, std::move(handler));
      },
      [weak = weak_from_this(), offset, changes = changes_](std::optional<Bytes> bytes) {
        const auto self = weak.lock();
        if (!self) return;
        self->isLoading_ = false;
        if (changes == self->changes_) self->didLoad(offset, bytes);
      });
}

/// Null when the disk took too long: then without it. Empty when the bytes were damaged, and all
/// that was kept is gone.
void HttpResourceCore::didLoad(int64_t offset, const std::optional<std::vector<uint8_t>>& bytes) {
  {
    MutexLock lock(stateMutex_);
    if (!bytes) disk_.reset();
    if (bytes && bytes->empty()) described_.reset();
    const bool isNext = bytes && store_.firstMissing(front_, kFarthest) == offset;
    if (bytes && !isClosed_ && !store_.write(offset, *bytes)) {
      error_ = makePosixError(AVErrorUnknown, "Memory is short.", ENOMEM);
    }
    // Memory that drops bytes as they come would have them read for ever.
    isFull_ = isNext && !bytes->empty() && store_.firstMissing(front_, kFarthest) <= offset;
    memory_.set(store_.memory());
    planSoonWhileLocked();
  }
  memory_.makeRoom();
}

/// Tells the disk what its bytes are, when that has changed.
void HttpResourceCore::describeWhileLocked() {
  if (!disk_ || place_.representation.isInDoubt()) return;
  if (!freshness_.mayKeep()) return leaveDiskWhileLocked();
  const Described now{size_, freshness_, location_};
  if (described_ == now) return;
  described_ = now;
  const int64_t seconds = std::time(nullptr);
  disk_->describe({location_->absoluteString(), place_.representation.validator(), size_,
                   place_.representation.servesRanges(), seconds,
                   seconds + freshness_.secondsLeft(TimeSource::now())});
}

void HttpResourceCore::leaveDiskWhileLocked() {
  if (disk_) disk_->drop();
  disk_.reset();
}

/// Has the disk keep the blocks among these bytes that are whole by now.
void HttpResourceCore::saveBlocksWhileLocked(int64_t begin, int64_t end) {
  if (!disk_) return;
  for (int64_t block = begin - begin % RangeStore::kBlockSize; block < end;
       block += RangeStore::kBlockSize) {
    const int64_t until = std::min(block + RangeStore::kBlockSize, size_.value_or(kFarthest));
    if (store_.firstMissing(block, until) >= until) saveWhileLocked(block, until);
  }
}

/// The same of all that is held.
void HttpResourceCore::saveAllWhileLocked() {
  if (!disk_ || isInDoubt_ || error_) return;
  int64_t position = 0;
  while (const auto held = store_.firstHeld(position)) {
    position = store_.firstMissing(*held, kFarthest);
    saveWhileLocked(*held, position);
  }
}

/// Has the disk keep what it lacks of bytes that are held.
void HttpResourceCore::saveWhileLocked(int64_t begin, int64_t end) {
  while (begin < end) {
    begin = disk_->heldUntil(begin);
    if (begin >= end) return;
    const int64_t until = std::min(
        {end, begin + CacheFile::kLongestRecord, disk_->firstHeld(begin).value_or(kFarthest)});
    std::vector<uint8_t> bytes(static_cast<std::size_t>(until - begin));
    bytes.resize(static_cast<std::size_t>(store_.read(begin, bytes)));
    disk_->write(begin, std::move(bytes));
    begin = until;
  }
}

}  // namespace zaffo::network
