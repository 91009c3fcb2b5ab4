// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpResource.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <list>
#include <utility>
#include <vector>

#include "platform/TimeSource.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/WantHandler.h"
#include "platform/network/NetworkError.h"
#include "platform/network/RangeStore.h"

namespace zaffo::network {

namespace {

/// Bytes that come sooner than the answer to another request.
constexpr int64_t kWorthReading = int64_t{128} * 1024;
/// What a preload asks for at a time.
constexpr int64_t kPreloadPiece = int64_t{512} * 1024;

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

/// A range of bytes that somebody waits for, and whom to tell.
struct HttpResource::AwaitedRange {
  AwaitedRange(Use to, int64_t from, int64_t until, std::function<void()> call)
      : use(to), begin(from), end(until), handler(std::move(call)) {}

  const Use use;
  const int64_t begin, end;
  media::WantHandler handler;
};

/// The resource, which also its requests under way and its Wants hold. What was read and is waited
/// for belongs to a mutex, the download to the network's thread; plan() there makes the one follow
/// the other.
class HttpResource::Core final : public ByteBudget::Holder,
                                 public HttpDownload::Sink,
                                 public PreloadGate::Guest,
                                 public std::enable_shared_from_this<Core> {
 public:
  Core(URL address, HttpOptions options, HttpClient& client, const ByteBudget& budget)
      : client_(client),
        gate_(client.preloadGate()),
        name_(address->absoluteString()),
        location_(address),
        memory_(budget),
        place_(std::move(address), std::move(options)) {}

  ~Core() override {
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

  [[nodiscard]] Ahead ahead() const;
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
  struct Aim {
    enum class Kind { Nothing, GoOn, Start, Stop };
    Kind kind = Kind::Nothing;
    int64_t offset = 0;
    std::optional<int64_t> end;
    bool isInDoubt = false;  ///< it asks whether the bytes are still the same
  };

  bool didReceive(int64_t offset, std::span<const uint8_t> bytes) override;
  void didChange() override;
  void didEnd(const NSErrorPtr& error) override;
  void gateOpened() override;

  void planSoonWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  void plan();
  [[nodiscard]] Aim aimWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim aimInDoubtWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim aimAheadWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] Aim startWhileLocked(int64_t offset) ZAFFO_REQUIRES(stateMutex_);
  void noteWaitingWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isReadWhileLocked() const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool preloadsWhileLocked() const ZAFFO_REQUIRES(stateMutex_) {
    return preloads_ > 0 && !readsAhead_ && !isReadWhileLocked();
  }
  [[nodiscard]] const AwaitedRange& firstAwaitedWhileLocked() const ZAFFO_REQUIRES(stateMutex_);
  void learnWhileLocked() ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool takeWhileLocked(int64_t offset, std::span<const uint8_t> bytes)
      ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool readsOnWhileLocked() const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isMetWhileLocked(const AwaitedRange& range) const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] bool isWantedWhileLocked(int64_t offset) const ZAFFO_REQUIRES(stateMutex_);
  [[nodiscard]] int64_t endOfWhileLocked(const AwaitedRange& range) const
      ZAFFO_REQUIRES(stateMutex_) {
    return size_ ? std::min(range.end, std::max(range.begin, *size_)) : range.end;
  }
  [[nodiscard]] int64_t aheadWhileLocked() const ZAFFO_REQUIRES(stateMutex_) {
    return preloadsWhileLocked() ? std::min(bound_ / 2, kPreloadPiece) : bound_ / 2;
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
  bool isOver_ ZAFFO_GUARDED_BY(stateMutex_) = false;  // the download
  bool isClosed_ ZAFFO_GUARDED_BY(stateMutex_) = false;

  // The network's thread alone.
  RemotePlace place_;
  std::unique_ptr<HttpDownload> download_;
  bool asksInDoubt_ = false;  // the download, until there is an answer
};

int64_t HttpResource::Core::readHeld(Use use, int64_t offset, std::span<uint8_t> bytes) {
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

media::ByteSource::Ahead HttpResource::Core::ahead() const {
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
bool HttpResource::Core::readsOnWhileLocked() const {
  if (!readsAhead_ && !wasKept_) return false;
  if (readsAhead_ && !isPaused_ && !isOver_) return false;
  const int64_t least =
      readsAhead_ ? aheadWhileLocked() / 2 : std::min(kWorthReading, keptUntil_ / 4);
  const int64_t limit = size_ ? std::min(front_ + least, *size_) : front_ + least;
  return store_.firstMissing(front_, limit) < limit;
}

void HttpResource::Core::add(const std::shared_ptr<AwaitedRange>& range) {
  MutexLock lock(stateMutex_);
  store_.pin(range->begin, range->end);
  awaited_.push_back(range);
  if (range->use == Use::Read || !readsAhead_) front_ = range->begin;
  if (range->use == Use::Read) readsAhead_ = true;
  if (error_ && mayPass(*error_)) error_ = nullptr;
  noteWaitingWhileLocked();
  planSoonWhileLocked();
}

void HttpResource::Core::remove(const std::shared_ptr<AwaitedRange>& range) {
  range->handler.cancel();
  MutexLock lock(stateMutex_);
  store_.unpin(range->begin, range->end);
  if (awaited_.remove(range) == 0) return;
  if (isReadWhileLocked()) return;
  if (range->use == Use::Read) readsAhead_ = false;
  planSoonWhileLocked();
}

void HttpResource::Core::beginPreload() {
  MutexLock lock(stateMutex_);
  if (preloads_++ == 0) gate_->add(weak_from_this());
}

void HttpResource::Core::endPreload() {
  MutexLock lock(stateMutex_);
  if (--preloads_ == 0) gate_->remove(*this);
  planSoonWhileLocked();
}

void HttpResource::Core::gateOpened() {
  MutexLock lock(stateMutex_);
  planSoonWhileLocked();
}

/// Whether somebody who reads waits.
bool HttpResource::Core::isReadWhileLocked() const {
  return std::ranges::any_of(awaited_, [](const auto& range) { return range->use == Use::Read; });
}

/// Closes the gate for as long as that is so.
void HttpResource::Core::noteWaitingWhileLocked() {
  const bool waits = !isClosed_ && isReadWhileLocked();
  if (waits == std::exchange(isReaderWaiting_, waits)) return;
  waits ? gate_->close() : gate_->open();
}

void HttpResource::Core::close() {
  MutexLock lock(stateMutex_);
  isClosed_ = true;
  store_.clear();
  memory_.set(0);
  planSoonWhileLocked();
}

void HttpResource::Core::rest() {
  MutexLock lock(stateMutex_);
  isClosed_ = true;
  readsAhead_ = false;
  planSoonWhileLocked();
}

void HttpResource::Core::wake() {
  MutexLock lock(stateMutex_);
  isClosed_ = false;
  wasKept_ = true;
  store_.wantFirst();
  keptUntil_ = store_.firstMissing(0, std::numeric_limits<int64_t>::max());
  front_ = 0;
  if (!freshness_.isFresh(TimeSource::now())) isInDoubt_ = true;
}

bool HttpResource::Core::isWorthKeeping() const {
  MutexLock lock(stateMutex_);
  return !error_ && freshness_.mayKeep() && store_.memory() > 0;
}

void HttpResource::Core::setByteBound(int64_t bound) {
  MutexLock lock(stateMutex_);
  bound_ = bound;
  store_.setBound(bound);
  memory_.set(store_.memory());
}

void HttpResource::Core::planSoonWhileLocked() {
  if (std::exchange(isPlanned_, true)) return;
  NetworkLoop::shared().post([self = shared_from_this()] { self->plan(); });
}

/// Tells those who have what they waited for, then has the download bring what is to come next.
void HttpResource::Core::plan() {
  std::vector<std::shared_ptr<AwaitedRange>> met;
  Aim aim;
  {
    MutexLock lock(stateMutex_);
    isPlanned_ = false;
    if (std::exchange(isOver_, false)) download_.reset();
    for (const auto& range : awaited_) {
      if (!isClosed_ && isMetWhileLocked(*range)) met.push_back(range);
    }
    std::erase_if(awaited_, [this](const auto& range)
                                ZAFFO_REQUIRES(stateMutex_) { return isMetWhileLocked(*range); });
    noteWaitingWhileLocked();
    aim = aimWhileLocked();
    if (aim.kind != Aim::Kind::Nothing) isPaused_ = false;
  }
  if (aim.kind == Aim::Kind::Stop || aim.kind == Aim::Kind::Start) download_.reset();
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

HttpResource::Core::Aim HttpResource::Core::aimWhileLocked() {
  if (isClosed_ || error_) return {Aim::Kind::Stop, 0, {}};
  // What is under way finds its bytes refused, and goes on when the gate opens.
  if (preloadsWhileLocked() && !gate_->isOpen()) return {};
  if (isInDoubt_) return aimInDoubtWhileLocked();
  if (awaited_.empty()) return aimAheadWhileLocked();
  const AwaitedRange& range = firstAwaitedWhileLocked();
  const int64_t missing = store_.firstMissing(range.begin, endOfWhileLocked(range));
  if (!download_) return startWhileLocked(missing);
  const int64_t position = download_->position();
  const bool isBeyond = download_->end() && missing >= *download_->end();
  const bool isNear = missing - position <= kWorthReading || !place_.representation.servesRanges();
  if (position <= missing && isNear && !isBeyond) return {Aim::Kind::GoOn, 0, {}};
  return startWhileLocked(missing);
}

HttpResource::Core::Aim HttpResource::Core::aimInDoubtWhileLocked() {
  if (awaited_.empty()) return {Aim::Kind::Stop, 0, {}};
  if (download_ && asksInDoubt_) return {};
  return {Aim::Kind::Start, 0, {}, true};
}

HttpResource::Core::Aim HttpResource::Core::aimAheadWhileLocked() {
  // A piece is brought to its end: the next one then comes on the same connection.
  if (preloadsWhileLocked()) return {isPaused_ ? Aim::Kind::GoOn : Aim::Kind::Nothing, 0, {}};
  if (!readsAhead_) return {Aim::Kind::Stop, 0, {}};
  const int64_t limit = front_ + aheadWhileLocked();
  const int64_t missing = store_.firstMissing(front_, limit);
  if (missing >= limit || (size_ && missing >= *size_)) return {};
  if (!download_) return startWhileLocked(missing);
  return {Aim::Kind::GoOn, 0, {}};
}

HttpResource::Core::Aim HttpResource::Core::startWhileLocked(int64_t offset) {
  if (!place_.representation.servesRanges()) return {Aim::Kind::Start, 0, {}};
  auto end = store_.firstHeld(offset);
  if (preloadsWhileLocked()) {
    end = std::min(end.value_or(offset + kPreloadPiece), offset + kPreloadPiece);
  }
  return {Aim::Kind::Start, offset, end};
}

/// That of one who reads, if there is one.
const HttpResource::AwaitedRange& HttpResource::Core::firstAwaitedWhileLocked() const {
  const auto read =
      std::ranges::find_if(awaited_, [](const auto& range) { return range->use == Use::Read; });
  return read == awaited_.end() ? *awaited_.front() : **read;
}

bool HttpResource::Core::isMetWhileLocked(const AwaitedRange& range) const {
  const int64_t end = endOfWhileLocked(range);
  return error_ || (!isInDoubt_ && store_.firstMissing(range.begin, end) >= end);
}

/// Whether bytes at this place are on the way to something that is wanted.
bool HttpResource::Core::isWantedWhileLocked(int64_t offset) const {
  return std::any_of(awaited_.begin(), awaited_.end(),
                     [&](const auto& range) { return range->end > offset; });
}

/// What the download found out.
void HttpResource::Core::learnWhileLocked() {
  size_ = place_.representation.size();
  freshness_ = place_.freshness;
  location_ = place_.current;
  if (!asksInDoubt_ || place_.representation.isInDoubt()) return;
  asksInDoubt_ = false;
  isInDoubt_ = false;
}

bool HttpResource::Core::didReceive(int64_t offset, std::span<const uint8_t> bytes) {
  bool isTaken = false;
  {
    MutexLock lock(stateMutex_);
    isTaken = takeWhileLocked(offset, bytes);
    memory_.set(store_.memory());
  }
  memory_.makeRoom();
  return isTaken;
}

void HttpResource::Core::didChange() {
  MutexLock lock(stateMutex_);
  store_.clear();
  memory_.set(store_.memory());
}

bool HttpResource::Core::takeWhileLocked(int64_t offset, std::span<const uint8_t> bytes) {
  learnWhileLocked();
  isPaused_ = (preloadsWhileLocked() && !gate_->isOpen()) ||
              (!isWantedWhileLocked(offset) && offset >= front_ + aheadWhileLocked());
  if (isPaused_) return false;
  if (preloadsWhileLocked()) store_.wantFirst();
  if (!store_.write(offset, bytes)) {
    error_ = makePosixError(AVErrorUnknown, "Memory is short.", ENOMEM);
  }
  const bool isMet = std::any_of(
      awaited_.begin(), awaited_.end(),
      [this](const auto& range) ZAFFO_REQUIRES(stateMutex_) { return isMetWhileLocked(*range); });
  if (isMet) planSoonWhileLocked();
  return true;
}

void HttpResource::Core::didEnd(const NSErrorPtr& error) {
  MutexLock lock(stateMutex_);
  learnWhileLocked();
  error_ = error;
  isOver_ = true;
  planSoonWhileLocked();
}

class HttpResource::HeldWant final : public Want {
 public:
  HeldWant(std::shared_ptr<Core> core, std::shared_ptr<AwaitedRange> range)
      : core_(std::move(core)), range_(std::move(range)) {
    core_->add(range_);
  }
  ~HeldWant() override { core_->remove(range_); }

 private:
  const std::shared_ptr<Core> core_;
  const std::shared_ptr<AwaitedRange> range_;
};

HttpResource::HttpResource(URL address, HttpOptions options, HttpClient& client, ByteBudget& budget)
    : core_(std::make_shared<Core>(std::move(address), std::move(options), client, budget)),
      budget_(budget) {
  budget_.add(core_);
}

HttpResource::~HttpResource() {
  budget_.remove(*core_);
  core_->close();
}

void HttpResource::rest() {
  budget_.remove(*core_);
  core_->rest();
}

void HttpResource::wake() {
  core_->wake();
  budget_.add(core_);
}

bool HttpResource::isWorthKeeping() const {
  return core_->isWorthKeeping();
}

int64_t HttpResource::readHeld(int64_t offset, std::span<uint8_t> bytes) {
  return core_->readHeld(Use::Read, offset, bytes);
}

int64_t HttpResource::readToPreload(int64_t offset, std::span<uint8_t> bytes) {
  return core_->readHeld(Use::Preload, offset, bytes);
}

void HttpResource::beginPreload() {
  core_->beginPreload();
}

void HttpResource::endPreload() {
  core_->endPreload();
}

std::unique_ptr<media::ByteSource::Want> HttpResource::want(int64_t offset, int64_t count,
                                                            std::function<void()> handler) {
  return wantFor(Use::Read, offset, count, std::move(handler));
}

std::unique_ptr<media::ByteSource::Want> HttpResource::wantToPreload(
    int64_t offset, int64_t count, std::function<void()> handler) {
  return wantFor(Use::Preload, offset, count, std::move(handler));
}

std::unique_ptr<media::ByteSource::Want> HttpResource::wantFor(Use use, int64_t offset,
                                                               int64_t count,
                                                               std::function<void()> handler) {
  const int64_t begin = std::clamp<int64_t>(offset, 0, kFarthest);
  const int64_t end = begin + std::clamp<int64_t>(count, 0, kFarthest - begin);
  return std::make_unique<HeldWant>(
      core_, std::make_shared<AwaitedRange>(use, begin, end, std::move(handler)));
}

std::optional<int64_t> HttpResource::size() const {
  return core_->size();
}

media::ByteSource::Ahead HttpResource::ahead() const {
  return core_->ahead();
}

NSErrorPtr HttpResource::error() const {
  return core_->error();
}

URL HttpResource::location() const {
  return core_->location();
}

const std::string& HttpResource::name() const {
  return core_->name();
}

}  // namespace zaffo::network
