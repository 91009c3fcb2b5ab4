// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/coremedia/CMTime.h"
#include "pool/Player.h"

namespace zaffo {

/// What players and requests did, in order, over all of them.
using EventLog = std::shared_ptr<std::vector<std::string>>;

/// A pooled player that writes what its pool does with it into a log, and whose loads end when a
/// test says.
class ScriptedMutablePlayer final : public MutablePlayer {
 public:
  ScriptedMutablePlayer(std::string name, EventLog log)
      : name_(std::move(name)), log_(std::move(log)) {}

  /// Loads end inside loadPlayerItem with `errorAtOnce`.
  bool loadsAtOnce = false;
  NSErrorPtr errorAtOnce;
  /// Run inside the operation, after it has been logged.
  std::function<void()> onTeardown, onFullTeardown, onSeek;

  float rateValue = 0;
  float volumeValue = 1;
  CMTime timeValue = kCMTimeZero;
  std::shared_ptr<AVPlayerItem> item;
  std::shared_ptr<UIView> view;
  struct Seek {
    CMTime time, toleranceBefore, toleranceAfter;
    SeekCompletion completion;
  };
  std::vector<Seek> seeks;
  std::vector<LoadCompletion> loads;
  std::vector<std::vector<CMTime>> boundaries;
  std::vector<CMTime> intervals;
  std::vector<TimeHandler> timeHandlers;
  std::vector<ZFCancelCommandPtr> timeCommands;

  /// Calls the completion of the latest load, even of one that was cancelled; null is success.
  void finishLoad(NSErrorPtr error = nullptr) {
    const auto completion = loads.back();
    completion(std::move(error));
  }

  [[nodiscard]] bool isLoading() const { return pending_ && *pending_; }

  /// Ends the load under way as a real player does; not to be called without one.
  void finishPendingLoad(NSErrorPtr error) {
    const auto pending = std::exchange(pending_, nullptr);
    (*pending)(std::move(error));
  }

  [[nodiscard]] float rate() const override { return rateValue; }
  void setRate(float rate) override { rateValue = rate; }
  [[nodiscard]] float volume() const override { return volumeValue; }
  void setVolume(float volume) override { volumeValue = volume; }
  [[nodiscard]] CMTime currentTime() const override { return timeValue; }
  void setCurrentTime(CMTime time) override { timeValue = time; }
  [[nodiscard]] std::shared_ptr<AVPlayerItem> playerItem() const override { return item; }
  [[nodiscard]] std::shared_ptr<UIView> outputView() const override { return view; }
  void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                  SeekCompletion completion) override {
    write("seek");
    if (onSeek) onSeek();
    seeks.push_back({time, toleranceBefore, toleranceAfter, std::move(completion)});
  }
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(std::vector<CMTime> times,
                                                   TimeHandler handler) override {
    boundaries.push_back(std::move(times));
    return addHandler(std::move(handler));
  }
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(CMTime interval, TimeHandler handler) override {
    intervals.push_back(interval);
    return addHandler(std::move(handler));
  }
  using Player::addTimeObserver;

  ZFCancelCommandPtr loadPlayerItem(std::shared_ptr<AVPlayerItem> newItem,
                                    LoadCompletion completion) override {
    write("load");
    item = std::move(newItem);
    loads.push_back(completion);
    if (loadsAtOnce) {
      completion(errorAtOnce);
    } else {
      pending_ = std::make_shared<LoadCompletion>(completion);
    }
    return std::make_shared<ZFCallbackCancelCommand>(
        [name = name_, log = log_, pending = std::weak_ptr<LoadCompletion>(pending_)] {
          log->push_back(name + " cancel");
          if (const auto completionToDrop = pending.lock()) *completionToDrop = nullptr;
        });
  }
  void teardownPlayerItem() override {
    write("teardown");
    if (onTeardown) onTeardown();
    drop();
  }
  void fullTeardown() override {
    write("full teardown");
    if (onFullTeardown) onFullTeardown();
    drop();
  }

 private:
  void write(const std::string& event) { log_->push_back(name_ + " " + event); }
  void drop() {
    item = nullptr;
    pending_ = nullptr;
  }
  ZFCancelCommandPtr addHandler(TimeHandler handler) {
    timeHandlers.push_back(std::move(handler));
    return timeCommands.emplace_back(std::make_shared<ZFCallbackCancelCommand>([] {}));
  }

  const std::string name_;
  const EventLog log_;
  std::shared_ptr<LoadCompletion> pending_;  // Emptied by a cancel.
};

}  // namespace zaffo
