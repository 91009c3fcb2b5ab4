// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVPlayer.h"

namespace zaffo {

/// A platform player that says what a test wants and remembers what it was told.
class ScriptedAVPlayer final : public AVPlayer {
 public:
  struct Seek {
    CMTime time, toleranceBefore, toleranceAfter;
    SeekCompletion completion;
  };
  struct Observation {
    std::vector<CMTime> times;
    CMTime interval;
    DispatchQueuePtr queue;
    std::function<void()> block;
    std::function<void(CMTime)> timeBlock;
  };

  float rateValue = 0;
  float volumeValue = 1;
  CMTime timeValue = kCMTimeZero;
  AVPlayerStatus statusValue = AVPlayerStatus::ReadyToPlay;
  NSErrorPtr errorValue;
  NSErrorPtr refusal;  ///< raised for each item while it is set
  std::function<void()> onStatusRead;
  std::function<void()> onCancelPrerolls;

  mutable int statusReads = 0;
  std::shared_ptr<AVPlayerItem> item;
  std::vector<std::shared_ptr<AVPlayerItem>> replacements;  ///< null for "no item"
  std::vector<CMTime> plainSeeks;
  std::vector<Seek> seeks;
  std::vector<float> prerollRates;
  std::vector<PrerollCompletion> prerolls;
  int cancelledPrerolls = 0;
  std::vector<std::shared_ptr<Observation>> observations;  ///< those not removed
  int removals = 0;

  [[nodiscard]] float rate() const override { return rateValue; }
  void setRate(float rate) override { rateValue = rate; }
  [[nodiscard]] float volume() const override { return volumeValue; }
  void setVolume(float volume) override { volumeValue = volume; }
  [[nodiscard]] CMTime currentTime() const override { return timeValue; }
  [[nodiscard]] std::shared_ptr<AVPlayerItem> currentItem() const override { return item; }
  [[nodiscard]] AVPlayerStatus status() const override {
    ++statusReads;
    if (onStatusRead) onStatusRead();
    return statusValue;
  }
  [[nodiscard]] NSErrorPtr error() const override { return errorValue; }

  void replaceCurrentItemWithPlayerItem(std::shared_ptr<AVPlayerItem> newItem) override {
    if (newItem && refusal) throw NSErrorException(refusal);
    replacements.push_back(newItem);
    item = std::move(newItem);
  }
  void seekToTime(CMTime time) override { plainSeeks.push_back(time); }
  void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                  SeekCompletion completion) override {
    seeks.push_back({time, toleranceBefore, toleranceAfter, std::move(completion)});
  }
  void prerollAtRate(float rate, PrerollCompletion completion) override {
    prerollRates.push_back(rate);
    prerolls.push_back(std::move(completion));
  }
  void cancelPendingPrerolls() override {
    ++cancelledPrerolls;
    if (onCancelPrerolls) onCancelPrerolls();
  }

  [[nodiscard]] std::shared_ptr<void> addBoundaryTimeObserverForTimes(
      std::vector<CMTime> times, DispatchQueuePtr queue, std::function<void()> block) override {
    return add({std::move(times), kCMTimeInvalid, std::move(queue), std::move(block), {}});
  }
  [[nodiscard]] std::shared_ptr<void> addPeriodicTimeObserverForInterval(
      CMTime interval, DispatchQueuePtr queue, std::function<void(CMTime)> block) override {
    return add({{}, interval, std::move(queue), {}, std::move(block)});
  }
  void removeTimeObserver(const std::shared_ptr<void>& token) override {
    ++removals;
    std::erase(observations, token);
  }

 private:
  std::shared_ptr<void> add(Observation observation) {
    return observations.emplace_back(std::make_shared<Observation>(std::move(observation)));
  }
};

}  // namespace zaffo
