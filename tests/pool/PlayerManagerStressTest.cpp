// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <map>
#include <random>
#include <sstream>

#include "pool/PoolTest.h"

namespace zaffo {
namespace {

/// Random use of a pool, checked after every step against what the pool promises. The seed is the
/// test's parameter, so that a failure can be repeated.
class PlayerManagerStressTest : public PoolTest, public testing::WithParamInterface<unsigned> {
 protected:
  static constexpr int kSteps = 800;

  /// One line of debugDescription(). The n-th player made has the id n.
  struct Line {
    int id = 0;
    std::string video, state;
    int uses = 0;
    bool operator==(const Line&) const = default;
  };
  struct Pending {
    RequestPtr request;
    int id = 0;  ///< of the record that served it
    bool cancelled = false;
  };

  int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }
  [[nodiscard]] int bound() const {
    const auto most = manager->maxAllowedConcurrentPlayers();
    return static_cast<int>(
        manager->mainThreadIsIdle() ? std::min(most, manager->maxPlayersAtIdleState()) : most);
  }

  [[nodiscard]] std::vector<Line> lines() const {
    std::vector<Line> result;
    std::istringstream text(manager->debugDescription());
    for (std::string word, line; std::getline(text, line);) {
      Line parsed;
      std::istringstream words(line);
      words >> word >> parsed.id >> word >> word >> parsed.video >> word >> parsed.state >> word >>
          parsed.uses;
      parsed.video.pop_back();
      parsed.state.pop_back();
      result.push_back(parsed);
    }
    return result;
  }

  /// The id of the record that a request for `video` must get.
  [[nodiscard]] int expectedRecord(const std::string& video, bool isLocal) const {
    const auto list = lines();
    for (const auto& line : list) {
      if (line.video == video) return line.id;
    }
    const auto idle = std::find_if(list.rbegin(), list.rend(), [&](const Line& line) {
      return line.uses == 0 && isLocal_.at(line.id) == isLocal;
    });
    if (idle != list.rend()) return idle->id;
    if (static_cast<int>(list.size()) < bound()) return static_cast<int>(made.size());
    return list.back().id;
  }

  void startRequest() {
    const char letter = static_cast<char>('a' + below(12));
    const std::string id(1, letter);
    const bool isLocal = letter < 'j';
    const auto before = lines();
    const int expected = expectedRecord(id, isLocal);
    isLocal_.emplace(expected, isLocal);
    const bool wasLoaded = manager->playerState(video(id)) == PlayerState::Loaded;

    const auto started = request(video(id, letter < 'g'), {}, isLocal);
    ASSERT_EQ(lines().at(0).id, expected);
    EXPECT_EQ(started->completions, wasLoaded ? 1 : 0);
    pending_.push_back({started, expected});
    if (below(3) == 0) {
      started->onComplete = [this, told = started.get(), expected] {
        cancelInside(*told, expected);
      };
    }
    expectOrderKept(before, expected);
  }

  /// Cancels some request that waits, in the completion of another one that the record `id` served.
  void cancelInside(const Request& told, int id) {
    std::vector<Pending*> waiting;
    for (auto& entry : pending_) {
      if (entry.request->completions == 0 && !entry.cancelled) waiting.push_back(&entry);
    }
    if (waiting.empty()) return;
    auto& chosen = *waiting[static_cast<std::size_t>(below(static_cast<int>(waiting.size())))];
    chosen.request->command->cancel();
    chosen.cancelled = true;
    ++cancelledInside_;
    if (chosen.id == id && lostItsPlayer(told)) ++stranded_[id];
  }

  static bool lostItsPlayer(const Request& request) {
    return request.errorText().find("has been reused") != std::string::npos;
  }

  /// Players other than `handedOut` keep their order; none but new ones appear.
  void expectOrderKept(const std::vector<Line>& before, int handedOut = -1) const {
    std::vector<int> oldIds, newIds;
    for (const auto& line : before) oldIds.push_back(line.id);
    for (const auto& line : lines()) {
      if (line.id != handedOut) newIds.push_back(line.id);
    }
    std::erase_if(oldIds, [&](int id) {
      return std::find(newIds.begin(), newIds.end(), id) == newIds.end();
    });
    EXPECT_EQ(oldIds, newIds);
  }

  void finishSomeLoad() {
    std::vector<std::shared_ptr<ScriptedMutablePlayer>> loading;
    for (const auto& weak : made) {
      const auto candidate = weak.lock();
      if (candidate && candidate->isLoading()) loading.push_back(candidate);
    }
    if (loading.empty()) return;
    const auto& chosen = loading[static_cast<std::size_t>(below(static_cast<int>(loading.size())))];
    chosen->finishPendingLoad(below(4) == 0 ? NSError::create("player", 7) : nullptr);
  }

  void endSomeRequest() {
    if (pending_.empty()) return;
    const auto index = below(static_cast<int>(pending_.size()));
    auto& chosen = pending_[static_cast<std::size_t>(index)];
    if (chosen.request->completions == 0) {
      chosen.request->command->cancel();
      chosen.cancelled = true;
    } else {
      if (below(2) == 0) chosen.request->command->cancel();  // Late: without effect.
      pending_.erase(pending_.begin() + index);
    }
  }

  void changeThePool(int choice) {
    switch (choice) {
      case 0:
        return manager->setMainThreadIsIdle(below(2) == 0);
      case 1:
        return manager->setMaxPlayersAtIdleState(1 + below(8));
      case 2:
        return manager->setMaxAllowedConcurrentPlayers(1 + below(10));
      case 3:
        return manager->setUseFastPlayer(below(4) == 0);
      default:
        return below(8) == 0 ? manager->removeAllPlayers() : void();
    }
  }

  void step() {
    const int choice = below(100);
    if (choice < 40) return startRequest();
    const auto before = lines();
    if (choice < 60) {
      finishSomeLoad();
    } else if (choice < 90) {
      endSomeRequest();
    } else {
      changeThePool(below(5));
    }
    expectOrderKept(before);
  }

  /// Uses of each record that must be counted: live handles, waiting requests, and requests that
  /// lost their player to another video while they waited.
  [[nodiscard]] std::map<int, int> expectedUses() const {
    std::map<int, int> uses = stranded_;
    for (const auto& entry : pending_) {
      const auto handle = entry.request->handle();
      if (handle || (entry.request->completions == 0 && !entry.cancelled)) ++uses[entry.id];
    }
    return uses;
  }

  void checkInvariants() {
    std::erase_if(pending_, [this](const Pending& entry) {
      const bool isLost = lostItsPlayer(*entry.request);
      if (isLost) ++stranded_[entry.id];
      return isLost;
    });
    for (const auto& entry : pending_) {
      EXPECT_LE(entry.request->completions, entry.cancelled ? 0 : 1);
    }
    const auto list = lines();
    EXPECT_LE(static_cast<int>(list.size()), bound());
    auto uses = expectedUses();
    for (const auto& line : list) {
      const auto held = player(static_cast<std::size_t>(line.id));
      ASSERT_TRUE(held) << "the pool keeps its players";
      EXPECT_EQ(line.uses, uses[line.id]) << manager->debugDescription();
      EXPECT_EQ(line.state == "Loading", held->isLoading()) << manager->debugDescription();
      EXPECT_EQ(line.video == "nil", line.state == "NotLoaded" && line.uses == 0);
    }
    const auto alive =
        std::count_if(made.begin(), made.end(), [](const auto& weak) { return !weak.expired(); });
    EXPECT_EQ(alive, std::ssize(list)) << "nobody else keeps a player";
  }

  std::vector<Pending> pending_;
  std::map<int, int> stranded_;
  std::map<int, bool> isLocal_;
  int cancelledInside_ = 0;
  std::mt19937 random_{GetParam()};
};

TEST_P(PlayerManagerStressTest, ThePoolKeepsItsPromises) {
  testing::internal::CaptureStdout();
  for (int i = 0; i < kSteps && !HasFailure(); ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    step();
    checkInvariants();
    log->clear();
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "every release is balanced";
  EXPECT_GT(made.size(), 20u);
  EXPECT_GT(cancelledInside_, 10);
  manager.reset();
  for (const auto& weak : made) EXPECT_TRUE(weak.expired());
}

INSTANTIATE_TEST_SUITE_P(Seeds, PlayerManagerStressTest, testing::Range(1u, 9u));

}  // namespace
}  // namespace zaffo
