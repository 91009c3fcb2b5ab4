// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SampleTable.h"

namespace zaffo::media {
namespace {

// What follows a sample's first byte, beside its size.
constexpr uint8_t kSync = 1, kHidden = 2, kGap = 4, kStep = 8, kOffset = 16, kDisposable = 32;

// Headers may hold any numbers: differences wrap around instead of overflowing.
uint64_t minus(int64_t a, int64_t b) {
  return static_cast<uint64_t>(a) - static_cast<uint64_t>(b);
}
int64_t plus(int64_t a, uint64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + b);
}

}  // namespace

void SampleTable::add(const Entry& entry) {
  if (size_ % kBlock == 0) {
    blocks_.push_back({entry.position, entry.decode, bytes_.size()});
    last_ = {.position = entry.position, .decode = entry.decode};
    step_ = 0;
  }
  const uint64_t gap = minus(entry.position, plus(last_.position, minus(last_.size, 0)));
  const uint64_t step = minus(entry.decode, last_.decode);
  const auto flag = [](bool is, uint8_t bit) { return is ? bit : uint8_t{0}; };
  bytes_.push_back(static_cast<uint8_t>(flag(entry.isSync, kSync) | flag(entry.isHidden, kHidden) |
                                        flag(entry.isDisposable, kDisposable) |
                                        flag(gap != 0, kGap) | flag(step != step_, kStep) |
                                        flag(entry.offset != last_.offset, kOffset)));
  addNumber(static_cast<uint64_t>(entry.size));
  if (gap != 0) addDifference(static_cast<int64_t>(gap));
  if (step != step_) addDifference(static_cast<int64_t>(step - step_));
  if (entry.offset != last_.offset)
    addDifference(static_cast<int64_t>(minus(entry.offset, last_.offset)));
  last_ = entry;
  step_ = step;
  ++size_;
}

void SampleTable::finish() {
  blocks_.shrink_to_fit();
  bytes_.shrink_to_fit();
}

/// Seven bits at a time, the lowest first.
void SampleTable::addNumber(uint64_t number) {
  for (; number >= 0x80; number >>= 7) bytes_.push_back(static_cast<uint8_t>(number | 0x80));
  bytes_.push_back(static_cast<uint8_t>(number));
}

/// The sign comes last, so that small ones of either sign are short.
void SampleTable::addDifference(int64_t difference) {
  const auto bits = static_cast<uint64_t>(difference);
  addNumber(difference < 0 ? ~bits << 1 | 1 : bits << 1);
}

std::size_t SampleTable::bytes() const {
  return sizeof(*this) + blocks_.capacity() * sizeof(Block) + bytes_.capacity();
}

/// The last sample that is shown and decoded at or before `time`; -1 when there is none. As the
/// demuxer's own search, also where times do not rise.
std::ptrdiff_t SampleTable::lastShownAt(int64_t time) const {
  const auto count = static_cast<std::ptrdiff_t>(size_);
  std::ptrdiff_t before = -1, after = count;
  const auto entryAt = [this](std::ptrdiff_t place) { return at(static_cast<std::size_t>(place)); };
  if (count > 0 && entryAt(count - 1).decode < time) before = count - 1;
  while (after - before > 1) {
    std::ptrdiff_t middle = (before + after) / 2;
    Walk walk(*this, static_cast<std::size_t>(middle));
    Entry entry = *walk.next();
    while (entry.isHidden && middle < after && middle < count - 1) {
      entry = *walk.next();
      if (++middle == after && entry.decode >= time) {
        middle = after - 1;
        entry = entryAt(middle);
        break;
      }
    }
    if (entry.decode >= time) after = middle;
    if (entry.decode <= time) before = middle;
  }
  return before;
}

std::optional<std::size_t> SampleTable::lastSync(std::size_t place) const {
  for (std::size_t end = place + 1; end > 0;) {
    const std::size_t begin = (end - 1) / kBlock * kBlock;
    std::optional<std::size_t> found;
    Walk walk(*this, begin);
    for (std::size_t i = begin; i < end; ++i) {
      if (walk.next()->isSync) found = i;
    }
    if (found) return found;
    end = begin;
  }
  return std::nullopt;
}

std::optional<std::size_t> SampleTable::syncAt(int64_t time) const {
  const std::ptrdiff_t shown = lastShownAt(time);
  if (const auto sync = shown < 0 ? std::nullopt : lastSync(static_cast<std::size_t>(shown))) {
    return sync;
  }
  if (size_ > 0 && time < at(0).decode) return 0;
  return std::nullopt;
}

SampleTable::Walk::Walk(const SampleTable& table, std::size_t place) : table_(&table) {
  place_ = place / kBlock * kBlock;
  while (place_ < place) static_cast<void>(next());
}

std::optional<SampleTable::Entry> SampleTable::Walk::next() {
  if (place_ >= table_->size_) return std::nullopt;
  if (place_ % kBlock == 0) {
    const Block& block = table_->blocks_[place_ / kBlock];
    at_ = block.at;
    last_ = {.position = block.position, .decode = block.decode};
    step_ = 0;
  }
  const uint8_t flags = table_->bytes_[at_++];
  const auto size = static_cast<int32_t>(takeNumber());
  Entry entry;
  entry.position = plus(last_.position, minus(last_.size, 0));
  if (flags & kGap) entry.position = plus(entry.position, minus(takeDifference(), 0));
  if (flags & kStep) step_ += static_cast<uint64_t>(takeDifference());
  entry.decode = plus(last_.decode, step_);
  entry.offset = last_.offset;
  if (flags & kOffset) entry.offset = plus(entry.offset, minus(takeDifference(), 0));
  entry.size = size;
  entry.isSync = flags & kSync;
  entry.isHidden = flags & kHidden;
  entry.isDisposable = flags & kDisposable;
  ++place_;
  return last_ = entry;
}

uint64_t SampleTable::Walk::takeNumber() {
  uint64_t number = 0;
  for (unsigned shift = 0;; shift += 7) {
    const uint8_t byte = table_->bytes_[at_++];
    number |= uint64_t{byte & 0x7fu} << shift;
    if (!(byte & 0x80)) return number;
  }
}

int64_t SampleTable::Walk::takeDifference() {
  const uint64_t number = takeNumber();
  return static_cast<int64_t>(number & 1 ? ~(number >> 1) : number >> 1);
}

}  // namespace zaffo::media
