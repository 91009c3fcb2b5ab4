// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVComposition.h"

namespace zaffo {

/// What was asked of a scripted composition and its tracks, in order.
struct CompositionCall {
  enum class Kind { AddTrack, SetTransform, Insert, Remove };

  Kind kind;
  int trackID;  ///< 1 for the track added first
  AVMediaType mediaType;
  int preferredTrackID = 0;                     ///< AddTrack
  CGAffineTransform transform{};                ///< SetTransform
  CMTimeRange range{};                          ///< Insert and Remove
  std::shared_ptr<const AVAssetTrack> track{};  ///< Insert
  CMTime startTime{};                           ///< Insert
};

/// A track that puts everything at its end and refuses what a test says.
class ScriptedCompositionTrack final : public AVMutableCompositionTrack {
 public:
  using Calls = std::vector<CompositionCall>;

  ScriptedCompositionTrack(int trackID, AVMediaType mediaType, Calls& calls)
      : trackID_(trackID), mediaType_(mediaType), calls_(calls) {}

  /// Whether the insertion with this number, from 0, is refused.
  std::function<bool(int number)> refuses = [](int) { return false; };
  /// Of a range, no more than this is there.
  CMTime longest = kCMTimePositiveInfinity;

  [[nodiscard]] int trackID() const override { return trackID_; }
  [[nodiscard]] AVMediaType mediaType() const override { return mediaType_; }
  [[nodiscard]] CGAffineTransform preferredTransform() const override { return transform_; }
  void setPreferredTransform(CGAffineTransform transform) override {
    transform_ = transform;
    calls_.push_back({CompositionCall::Kind::SetTransform, trackID_, mediaType_, 0, transform});
  }
  [[nodiscard]] bool insertTimeRange(CMTimeRange timeRange,
                                     std::shared_ptr<const AVAssetTrack> track, CMTime startTime,
                                     NSErrorPtr* error) override {
    calls_.push_back({CompositionCall::Kind::Insert,
                      trackID_,
                      mediaType_,
                      0,
                      {},
                      timeRange,
                      std::move(track),
                      startTime});
    if (refuses(insertions_++)) {
      if (error) *error = NSError::create("platform", 1);
      return false;
    }
    const CMTime length = CMTimeMinimum(timeRange.duration, longest);
    range_ = CMTimeRangeFromTimeToTime(kCMTimeZero, CMTimeAdd(startTime, length));
    return true;
  }
  void removeTimeRange(CMTimeRange timeRange) override {
    calls_.push_back({CompositionCall::Kind::Remove, trackID_, mediaType_, 0, {}, timeRange});
    range_ = CMTimeRangeFromTimeToTime(kCMTimeZero, timeRange.start);
  }
  [[nodiscard]] CMTimeRange timeRange() const override { return range_; }
  [[nodiscard]] const std::vector<AVCompositionTrackSegment>& segments() const override {
    return segments_;
  }

 private:
  const int trackID_;
  const AVMediaType mediaType_;
  Calls& calls_;
  int insertions_ = 0;
  CGAffineTransform transform_;
  CMTimeRange range_ = kCMTimeRangeInvalid;
  std::vector<AVCompositionTrackSegment> segments_;
};

/// A composition that notes what is asked of it. Its keys are loaded as soon as they are asked for.
class ScriptedComposition final : public AVMutableComposition {
 public:
  CMTime durationValue = kCMTimeZero;
  std::vector<CompositionCall> calls;
  std::vector<std::shared_ptr<ScriptedCompositionTrack>> added;
  CMTime longestPicture = kCMTimePositiveInfinity;  ///< what there is of a range of a picture
  /// Whether an insertion is refused, by the track's number and the insertion's on it.
  std::function<bool(int trackID, int number)> refuses = [](int, int) { return false; };

  [[nodiscard]] std::shared_ptr<AVMutableCompositionTrack> addMutableTrackWithMediaType(
      AVMediaType mediaType, int preferredTrackID) override {
    const int trackID = static_cast<int>(added.size()) + 1;
    calls.push_back({CompositionCall::Kind::AddTrack, trackID, mediaType, preferredTrackID});
    added.push_back(std::make_shared<ScriptedCompositionTrack>(trackID, mediaType, calls));
    if (mediaType == AVMediaTypeVideo) added.back()->longest = longestPicture;
    added.back()->refuses = [this, trackID](int number) { return refuses(trackID, number); };
    return added.back();
  }
  [[nodiscard]] std::vector<std::shared_ptr<AVMutableCompositionTrack>> mutableTracks()
      const override {
    return {added.begin(), added.end()};
  }

  void loadValuesAsynchronouslyForKeys(std::vector<std::string> /*keys*/,
                                       std::function<void()> handler) override {
    handler();
  }
  [[nodiscard]] AVKeyValueStatus statusOfValueForKey(const std::string& /*key*/,
                                                     NSErrorPtr* /*error*/) const override {
    return AVKeyValueStatus::Loaded;
  }
  void cancelLoading() override {}
  [[nodiscard]] CMTime duration() const override { return durationValue; }
  [[nodiscard]] std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const override {
    return {};
  }
  [[nodiscard]] std::shared_ptr<AVAsset> copy() override { return nullptr; }
  [[nodiscard]] bool isReadable() const override { return true; }
  [[nodiscard]] bool isPlayable() const override { return true; }
};

}  // namespace zaffo
