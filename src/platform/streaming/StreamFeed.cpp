// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/StreamFeed.h"

#include <algorithm>
#include <utility>

#include "platform/network/NetworkError.h"

namespace zaffo::streaming {
namespace {

using media::Outcome;

constexpr CMTimeScale kTimescale = 90'000;
constexpr int64_t kLongestHeader = int64_t{1} << 20;
constexpr double kLeastPause = 0.5;  // seconds, whatever a list says
constexpr int kMostFailedReloads = 3;
constexpr std::size_t kKeptSmall = 8;

std::string nameOf(const network::URL& address, const network::ByteRange& range) {
  return address->absoluteString() + " " + std::to_string(range.offset) + " " +
         std::to_string(range.length.value_or(-1));
}

/// The vector of a segment that is told none: its number.
media::CipherBlock vectorFor(int64_t number) {
  media::CipherBlock vector{};
  for (auto byte = vector.rbegin(); number > 0; ++byte, number >>= 8) {
    *byte = static_cast<uint8_t>(number & 0xFF);
  }
  return vector;
}

}  // namespace

StreamFeed::StreamFeed(std::vector<Rendition> renditions, std::size_t present, SegmentList list,
                       StreamServices services)
    : services_(std::move(services)), choice_(ratesOf(renditions)), present_(present) {
  for (Rendition& rendition : renditions) {
    known_.push_back({.rendition = std::move(rendition), .list = {}, .loading = {}, .want = {}});
  }
  known_[present].list = std::move(list);
}

std::vector<int64_t> StreamFeed::ratesOf(const std::vector<Rendition>& renditions) {
  std::vector<int64_t> rates;
  rates.reserve(renditions.size());
  for (const auto& rendition : renditions) rates.push_back(rendition.bitsPerSecond);
  return rates;
}

CMTime StreamFeed::duration() const {
  MutexLock lock(feedMutex_);
  const SegmentList& list = listWhileLocked();
  return list.isEnded() ? CMTimeMakeWithSeconds(list.end(), kTimescale) : kCMTimeIndefinite;
}

int64_t StreamFeed::firstNumber() const {
  MutexLock lock(feedMutex_);
  return listWhileLocked().firstNumber();
}

int64_t StreamFeed::numberFor(CMTime time) const {
  MutexLock lock(feedMutex_);
  const SegmentList& list = listWhileLocked();
  if (CMTIME_IS_POSITIVE_INFINITY(time)) return list.endNumber() - 1;
  return list.numberFor(CMTIME_IS_NUMERIC(time) ? CMTimeGetSeconds(time) : 0);
}

Outcome StreamFeed::segment(int64_t number, double secondsRead,
                            std::shared_ptr<const StreamSegment>& segment) {
  MutexLock lock(feedMutex_);
  const SegmentList& list = listWhileLocked();
  if (number >= list.endNumber()) {
    if (list.isEnded()) return Outcome::End;
    reloadWhileLocked(list.targetSeconds());
    return error_ ? Outcome::Error : Outcome::Again;
  }
  if (number < list.firstNumber()) return Outcome::Working;
  const auto alive = alive_.find(number);
  segment = alive == alive_.end() ? nullptr : alive->second.lock();
  if (!segment) {
    const double start = list.at(number).start;
    chooseWhileLocked({present_, services_.bitsPerSecond(), std::max(0.0, start - secondsRead)});
    segment = openWhileLocked(number);
  }
  if (isNew_) {
    opened_ = segment;
  } else if (opened_ && opened_->number != number) {
    opened_.reset();
  }
  isNew_ = false;
  return Outcome::Ready;
}

// Live

void StreamFeed::awaitMore(std::weak_ptr<media::WantHandler> waiter) {
  MutexLock lock(feedMutex_);
  std::erase_if(waiters_, [](const auto& known) { return known.expired(); });
  waiters_.push_back(std::move(waiter));
}

NSErrorPtr StreamFeed::error() const {
  MutexLock lock(feedMutex_);
  return error_;
}

void StreamFeed::reloadWhileLocked(double seconds) {
  if (std::exchange(isAsked_, true)) return;
  if (!reloading_) {
    reloading_ = ListReloading::make(known_[present_].rendition.address,
                                     [weakSelf = weak_from_this()](Result<network::Playlist> list) {
                                       if (const auto self = weakSelf.lock())
                                         self->takeList(std::move(list));
                                     });
  }
  reloading_->askAfter(std::max(seconds, kLeastPause));
}

void StreamFeed::takeList(Result<network::Playlist> list) {
  std::vector<std::weak_ptr<media::WantHandler>> waiters;
  {
    MutexLock lock(feedMutex_);
    isAsked_ = false;
    if (goOnWhileLocked(std::move(list))) {
      waiters.swap(waiters_);
    } else {
      reloadWhileLocked(listWhileLocked().targetSeconds() / 2);
    }
  }
  for (const auto& weakWaiter : waiters) {
    if (const auto waiter = weakWaiter.lock()) waiter->call();
  }
}

/// Whether those who wait have what they wait for, or never will.
bool StreamFeed::goOnWhileLocked(Result<network::Playlist> list) {
  if (list && list->kind == network::Playlist::Kind::Media) {
    failedReloads_ = 0;
    return known_[present_].list->goOn(*std::move(list));
  }
  if (++failedReloads_ < kMostFailedReloads) return false;
  error_ = list ? network::networkError(network::NSURLErrorCannotDecodeRawData,
                                        "The stream cannot be played: its list is gone.")
                : list.error();
  return true;
}

// Renditions

/// Goes over to the rendition that is wanted once its list is here.
void StreamFeed::chooseWhileLocked(const RenditionChoice::Present& present) {
  if (known_.size() < 2 || !listWhileLocked().isEnded()) return;
  const std::size_t wanted = choice_.next(present);
  if (wanted != present_ && isLoadedWhileLocked(known_[wanted])) present_ = wanted;
}

/// Has the list brought if it is not under way yet.
bool StreamFeed::isLoadedWhileLocked(Known& known) {
  if (known.list) return true;
  if (known.isUnfit) return false;
  if (!known.loading) {
    const auto& address = known.rendition.address;
    known.loading = std::make_unique<ListLoading>(services_.resources->at(address));
    known.want = known.loading->want([] {});
  }
  if (known.loading->step() == Outcome::Again) return false;
  auto loaded = known.loading->take();
  known.want.reset();
  known.loading.reset();
  known.isUnfit = true;
  if (!loaded || loaded->kind != network::Playlist::Kind::Media) return false;
  SegmentList list(*std::move(loaded));
  known.isUnfit = !list.isAlignedWith(listWhileLocked());
  if (!known.isUnfit) known.list = std::move(list);
  return !known.isUnfit;
}

std::shared_ptr<const StreamSegment> StreamFeed::openWhileLocked(int64_t number) {
  const SegmentList::Entry& entry = listWhileLocked().at(number);
  const network::MediaSegment& listed = entry.media;
  auto segment = std::make_shared<StreamSegment>();
  segment->number = number;
  segment->rendition = present_;
  segment->start = CMTimeMakeWithSeconds(entry.start, kTimescale);
  segment->seconds = listed.seconds;
  segment->run = entry.run;
  std::shared_ptr<SmallBytes> header;
  if (listed.header) {
    segment->header = nameOf(listed.header->address, listed.header->range);
    header = smallWhileLocked(listed.header->address, listed.header->range, kLongestHeader);
  }
  segment->bytes =
      std::make_shared<SegmentBytes>(services_.resources->at(listed.address), listed.range,
                                     std::move(header), cipherWhileLocked(listed));
  // A further part of a resource that is read comes by itself.
  if (!isReadWhileLocked(segment->bytes->name())) segment->first = segment->bytes->wantFirst();
  alive_[number] = segment;
  return segment;
}

bool StreamFeed::isReadWhileLocked(const std::string& name) {
  std::erase_if(alive_, [](const auto& known) { return known.second.expired(); });
  return std::ranges::any_of(alive_, [&](const auto& known) {
    const auto segment = known.second.lock();
    return segment && segment->bytes->name() == name;
  });
}

std::optional<SegmentCipher> StreamFeed::cipherWhileLocked(const network::MediaSegment& segment) {
  if (!segment.key.address) return std::nullopt;
  constexpr auto kMost = static_cast<int64_t>(media::kCipherBlock);
  return SegmentCipher{smallWhileLocked(segment.key.address, {}, kMost),
                       segment.key.vector ? *segment.key.vector : vectorFor(segment.number)};
}

std::shared_ptr<SmallBytes> StreamFeed::smallWhileLocked(const network::URL& address,
                                                         network::ByteRange range, int64_t most) {
  const std::string name = nameOf(address, range);
  for (const auto& [known, bytes] : small_) {
    if (known == name && !bytes->error()) return bytes;
  }
  auto bytes = std::make_shared<SmallBytes>(services_.resources->at(address), range, most);
  if (small_.size() == kKeptSmall) small_.erase(small_.begin());
  small_.emplace_back(name, bytes);
  return bytes;
}

media::BufferedAhead StreamFeed::bufferedAhead() const {
  MutexLock lock(feedMutex_);
  const SegmentList& list = listWhileLocked();
  const double place = secondsRead_;
  media::BufferedAhead ahead{false, false, false, 0};
  for (int64_t number = list.numberFor(place); list.has(number); ++number) {
    const auto alive = alive_.find(number);
    const auto segment = alive == alive_.end() ? nullptr : alive->second.lock();
    if (!segment) return ahead;
    const auto held = segment->bytes->ahead();
    const auto size = static_cast<double>(segment->bytes->bodySize().value_or(0));
    const double left =
        std::min(segment->seconds, list.at(number).start + segment->seconds - place);
    if (!held.isRest && size <= 0) return ahead;
    ahead.seconds +=
        held.isRest ? std::max(0.0, left)
                    : std::min(left, static_cast<double>(held.count) / size * segment->seconds);
    ahead.isFull = held.isFull;
    if (!held.isRest) return ahead;
  }
  ahead.isRest = ahead.isFull = list.isEnded();
  ahead.isAll = ahead.isRest && list.firstNumber() == list.numberFor(place);
  return ahead;
}

}  // namespace zaffo::streaming
