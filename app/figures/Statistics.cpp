// SPDX-License-Identifier: Apache-2.0
#include "figures/Statistics.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace zaffo::feed {

std::shared_ptr<Swipe> Statistics::beginSwipe(std::string video, int page, int64_t now) {
  auto swipe = std::make_shared<Swipe>();
  swipe->video = std::move(video);
  swipe->page = page;
  swipe->requested = now;
  swipes_.push_back(swipe);
  return swipe;
}

void Statistics::noteTurn(const TurnTimes& turn) {
  longestBlock_ = std::max(longestBlock_, turn.wall);
  mostWorked_ = std::max(mostWorked_, turn.worked);
  mostAsleep_ = std::max(mostAsleep_, turn.asleep());
  if (turn.queued) mostQueued_ = std::max(mostQueued_.value_or(0), *turn.queued);
  if (swipes_.empty()) return;
  auto& longest = swipes_.back()->longestBlock;
  longest = std::max(longest, turn.wall);
}

void Statistics::setWarmedUpFigures(const ProcessFigures& figures, int players) {
  warmedUp_ = Figures{figures, players};
}

void Statistics::setFinalFigures(const ProcessFigures& figures, int players) {
  final_ = Figures{figures, players};
}

namespace {

using nlohmann::ordered_json;

double milliseconds(int64_t nanoseconds) {
  return static_cast<double>(nanoseconds) / 1e6;
}

ordered_json since(int64_t start, const std::optional<int64_t>& end) {
  if (!end) return nullptr;
  return milliseconds(*end - start);
}

ordered_json swipeObject(const Swipe& swipe) {
  return {{"video", swipe.video},
          {"page", swipe.page},
          {"start", swipe.warm ? "warm" : "cold"},
          {"request_to_completion_ms", since(swipe.requested, swipe.completed)},
          {"request_to_first_frame_ms", since(swipe.requested, swipe.firstFrame)},
          {"frames_shown", swipe.framesShown},
          {"frames_dropped", swipe.framesDropped},
          {"longest_main_thread_block_ms", milliseconds(swipe.longestBlock)},
          {"error", swipe.error.empty() ? ordered_json(nullptr) : ordered_json(swipe.error)}};
}

ordered_json figuresObject(const ProcessFigures& figures, int players) {
  return {{"players", players},
          {"threads", figures.threads},
          {"file_descriptors", figures.fileDescriptors},
          {"resident_bytes", figures.residentBytes},
          {"private_bytes", figures.privateBytes},
          {"anonymous_bytes", figures.anonymousBytes}};
}

}  // namespace

std::string Statistics::json() const {
  ordered_json swipes = ordered_json::array();
  for (const auto& swipe : swipes_) swipes.push_back(swipeObject(*swipe));
  ordered_json root{{"swipes", std::move(swipes)},
                    {"longest_main_thread_block_ms", milliseconds(longestBlock_)},
                    {"most_main_thread_work_ms", milliseconds(mostWorked_)},
                    {"most_main_thread_queued_ms", since(0, mostQueued_)},
                    {"most_main_thread_asleep_ms", milliseconds(mostAsleep_)},
                    {"after_50_swipes", nullptr},
                    {"end", nullptr}};
  if (warmedUp_) root["after_50_swipes"] = figuresObject(warmedUp_->process, warmedUp_->players);
  if (final_) root["end"] = figuresObject(final_->process, final_->players);
  // File names are bytes; what is not UTF-8 in them must not abort the run.
  return root.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace zaffo::feed
