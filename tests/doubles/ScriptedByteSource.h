// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/media/source/ByteSource.h"

namespace zaffo::media {

/// A file none of whose bytes is there until a test brings it. Thread: the test's.
class ScriptedByteSource final : public ByteSource {
 public:
  explicit ScriptedByteSource(std::string bytes)
      : bytes_(std::move(bytes)), isHeld_(bytes_.size(), kMissing) {}

  /// Brings the next `count` bytes that are missing of what was wanted first, and tells those whose
  /// wants are fulfilled by that. False when nobody wants anything.
  bool bringWanted(int64_t count) {
    if (wants_.empty()) return false;
    const Stretch& wanted = wants_.front()->stretch;
    const int64_t from = heldUntil(wanted);
    bring(from, std::min(count, wanted.until - from));
    return true;
  }
  void bring(int64_t offset, int64_t count) {
    mark({offset, std::min(offset + count, length())});
    sizeIsKnown_ = true;
    tell();
  }
  /// Nothing stays.
  void forget() { isHeld_.assign(bytes_.size(), kMissing); }
  /// Whatever is not here will not come.
  void fail(int number, NSErrorPtr error) {
    failure_ = number;
    error_ = std::move(error);
    tell();
  }
  /// The size is told when the first bytes have come.
  void hideSize() { sizeIsKnown_ = false; }

  /// Wants that nobody has let go of, and how many there were in all.
  [[nodiscard]] std::size_t wants() const { return wants_.size(); }
  [[nodiscard]] int wantsInAll() const { return wantsInAll_; }

  [[nodiscard]] int64_t readHeld(int64_t offset, std::span<uint8_t> bytes) override {
    if (offset >= length()) return 0;
    const auto wanted = static_cast<int64_t>(bytes.size());
    const int64_t count = heldUntil({offset, std::min(offset + wanted, length())}) - offset;
    std::copy_n(bytes_.data() + offset, count, bytes.begin());
    if (count > 0) return count;
    return failure_ ? -failure_ : -EAGAIN;
  }
  [[nodiscard]] std::unique_ptr<Want> want(int64_t offset, int64_t count,
                                           std::function<void()> handler) override {
    ++wantsInAll_;
    const Stretch stretch{offset, std::min(offset + count, length())};
    return std::make_unique<OneWant>(*this, stretch, std::move(handler));
  }
  void setWorthGoingOn(int64_t count) { worthGoingOn_ = count; }
  [[nodiscard]] int64_t worthGoingOn() const override { return worthGoingOn_; }
  [[nodiscard]] std::optional<int64_t> size() const override {
    return sizeIsKnown_ ? std::optional(length()) : std::nullopt;
  }
  [[nodiscard]] NSErrorPtr error() const override { return error_; }
  [[nodiscard]] const std::string& name() const override { return name_; }

 private:
  struct Stretch {
    int64_t from, until;
  };

  struct OneWant final : Want {
    OneWant(ScriptedByteSource& of, Stretch what, std::function<void()> call)
        : source(of), stretch(what), handler(std::move(call)) {
      source.wants_.push_back(this);
    }
    ~OneWant() override { source.wants_.remove(this); }

    ScriptedByteSource& source;
    const Stretch stretch;
    std::function<void()> handler;
  };

  static constexpr char kMissing = 0, kHeld = 1;

  [[nodiscard]] int64_t length() const { return static_cast<int64_t>(bytes_.size()); }
  void mark(Stretch stretch) {
    const auto from = static_cast<std::size_t>(stretch.from);
    const auto count = static_cast<std::size_t>(stretch.until - stretch.from);
    isHeld_.replace(from, count, count, kHeld);
  }
  /// Where the first byte of a stretch is missing; its end where none is.
  [[nodiscard]] int64_t heldUntil(Stretch stretch) const {
    const std::size_t missing = isHeld_.find(kMissing, static_cast<std::size_t>(stretch.from));
    return std::min(static_cast<int64_t>(std::min(missing, bytes_.size())), stretch.until);
  }
  void tell() {
    std::vector<std::function<void()>> handlers;
    for (OneWant* want : wants_) {
      const bool isHere = heldUntil(want->stretch) == want->stretch.until;
      if (isHere || failure_) handlers.push_back(std::exchange(want->handler, nullptr));
    }
    for (const auto& handler : handlers) {
      if (handler) handler();
    }
  }

  const std::string bytes_;
  const std::string name_ = "scripted";
  std::string isHeld_;  ///< of each byte
  std::list<OneWant*> wants_;
  int wantsInAll_ = 0;
  int64_t worthGoingOn_ = std::numeric_limits<int64_t>::max();
  bool sizeIsKnown_ = true;
  int failure_ = 0;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
