// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/foundation/MakeError.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

/// A source whose cursors wait at a gate, as one that reads from afar does, and which counts what
/// is asked of it.
class GatedSource final : public SampleSource, public std::enable_shared_from_this<GatedSource> {
 public:
  explicit GatedSource(std::shared_ptr<SampleSource> inner) : inner_(std::move(inner)) {}

  /// Lets `samples` more be read of each track, or of one; the cursors that wait hear of it.
  void let(int samples, std::optional<int> only = std::nullopt) {
    std::vector<std::function<void()>> waiting;
    {
      const std::lock_guard lock(gateMutex_);
      for (auto& [track, state] : states_) {
        if (only && *only != track) continue;
        state.left = samples;
        if (std::exchange(state.waits, false)) waiting.push_back(state.ready);
      }
      if (!only) initially_ = samples;
    }
    for (const auto& ready : waiting) ready();
  }
  /// Called, where it is read, each time a sample is asked for. Set before anything reads.
  void setAskedHandler(std::function<void(int trackID)> asked) { asked_ = std::move(asked); }
  /// No cursor of the track can be opened.
  void refuse(int trackID) { refused_ = trackID; }

  [[nodiscard]] int opened(int trackID) { return counted(trackID, &State::opened); }
  [[nodiscard]] int asked(int trackID) { return counted(trackID, &State::asked); }

  [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return inner_->tracks();
  }
  [[nodiscard]] CMTime duration() const override { return inner_->duration(); }
  [[nodiscard]] bool soundTracksAreOne() const override { return inner_->soundTracksAreOne(); }
  [[nodiscard]] CMTime emptyUntil(int trackID, CMTime time) const override {
    return inner_->emptyUntil(trackID, time);
  }
  Result<std::unique_ptr<SampleCursor>> openCursor(int trackID) override {
    if (trackID == refused_) return makeError(AVErrorUnknown, "refused");
    auto cursor = inner_->openCursor(trackID);
    if (!cursor) return cursor;
    const std::lock_guard lock(gateMutex_);
    const auto [place, isNew] = states_.try_emplace(trackID);
    if (isNew) place->second.left = initially_;
    ++place->second.opened;
    return std::make_unique<Cursor>(shared_from_this(), trackID, *std::move(cursor));
  }

 private:
  struct State {
    int left = 0;
    bool waits = false;
    std::function<void()> ready = [] {};
    int opened = 0;
    int asked = 0;
  };

  class Cursor final : public SampleCursor {
   public:
    Cursor(std::shared_ptr<GatedSource> source, int trackID, std::unique_ptr<SampleCursor> inner)
        : source_(std::move(source)), trackID_(trackID), inner_(std::move(inner)) {}
    [[nodiscard]] Outcome next(Sample& sample) override {
      return source_->passes(trackID_) ? inner_->next(sample) : Outcome::Again;
    }
    [[nodiscard]] bool seek(CMTime time) override { return inner_->seek(time); }
    [[nodiscard]] NSErrorPtr error() const override { return inner_->error(); }
    [[nodiscard]] const AVCodecParameters& codecParameters() const override {
      return inner_->codecParameters();
    }
    void setReadyHandler(std::function<void()> handler) override {
      const std::lock_guard lock(source_->gateMutex_);
      source_->states_[trackID_].ready = std::move(handler);
    }

   private:
    const std::shared_ptr<GatedSource> source_;
    const int trackID_;
    const std::unique_ptr<SampleCursor> inner_;
  };

  bool passes(int trackID) {
    if (asked_) asked_(trackID);
    const std::lock_guard lock(gateMutex_);
    State& state = states_[trackID];
    ++state.asked;
    state.waits = state.left == 0;
    if (state.left > 0) --state.left;
    return !state.waits;
  }
  int counted(int trackID, int State::*count) {
    const std::lock_guard lock(gateMutex_);
    return states_[trackID].*count;
  }

  const std::shared_ptr<SampleSource> inner_;
  std::function<void(int trackID)> asked_;
  std::atomic<int> refused_{-1};
  std::mutex gateMutex_;
  std::map<int, State> states_;
  int initially_ = 1'000'000;
};

}  // namespace zaffo::media
