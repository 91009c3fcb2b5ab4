// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/TimeStretch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace zaffo::media {

namespace {

/// Sound is taken in pieces of two hops, each laid half over the one before.
constexpr double kHopSeconds = 0.01;
/// A piece may be taken this much before or after its place, where it joins best.
constexpr double kReachSeconds = 0.004;
/// Not every frame is looked at for a first idea of where pieces join.
constexpr int64_t kCoarse = 4;

/// Overlap and add, each piece where its waveform goes on with that of the piece before. Piece k
/// begins at output frame k * hop; its middle is at its place in the input to within the reach.
///
///     output    |--- piece k-1 ---|
///                       |---- piece k ----|
///                       |  hop    |  hop  |
class PieceStretch final : public TimeStretch {
 public:
  PieceStretch(int sampleRate, double rate)
      : rate_(rate),
        hop_(std::llround(kHopSeconds * sampleRate)),
        reach_(std::llround(kReachSeconds * sampleRate)) {
    for (int64_t i = 0; i < hop_; ++i) {
      const double phase = std::numbers::pi * (static_cast<double>(i) + 0.5);
      rise_.push_back(0.5f -
                      0.5f * static_cast<float>(std::cos(phase / static_cast<double>(hop_))));
    }
    append(std::vector<float>(static_cast<std::size_t>(2 * -first_)));
  }

  void process(std::span<const float> input, std::vector<float>& output) override {
    framesIn_ += static_cast<int64_t>(input.size() / 2);
    append(input);
    while (place() + reach_ + 2 * hop_ <= end()) addPiece(output);
    forget();
  }

  void finish(std::vector<float>& output) override {
    const auto missing = std::llround(static_cast<double>(framesIn_) / rate_) - nextPiece_ * hop_;
    const std::size_t size =
        output.size() + static_cast<std::size_t>(std::max<int64_t>(missing, 0)) * 2;
    append(std::vector<float>(static_cast<std::size_t>(2 * (reach_ + 4 * hop_))));
    while (output.size() < size) {
      append(std::vector<float>(static_cast<std::size_t>(4 * hop_)));
      addPiece(output);
    }
    output.resize(size);
  }

 private:
  [[nodiscard]] int64_t end() const { return first_ + static_cast<int64_t>(mono_.size()); }

  /// Where the next piece begins in the input when its middle is at its place.
  [[nodiscard]] int64_t place() const {
    return std::llround(static_cast<double>((nextPiece_ + 1) * hop_) * rate_) - hop_;
  }

  void append(std::span<const float> input) {
    input_.insert(input_.end(), input.begin(), input.end());
    for (std::size_t i = 0; i + 1 < input.size(); i += 2) mono_.push_back(input[i] + input[i + 1]);
  }

  /// Puts out one hop: the second half of the piece before, fading over into the first of the next.
  void addPiece(std::vector<float>& output) {
    const int64_t start = bestStart(place());
    for (int64_t i = 0; i < hop_; ++i) {
      const float rise = rise_[static_cast<std::size_t>(i)];
      const auto before = static_cast<std::size_t>(2 * (goesOn_ + i - first_));
      const auto after = static_cast<std::size_t>(2 * (start + i - first_));
      output.push_back(input_[before] + rise * (input_[after] - input_[before]));
      output.push_back(input_[before + 1] + rise * (input_[after + 1] - input_[before + 1]));
    }
    goesOn_ = start + hop_;
    ++nextPiece_;
  }

  /// The start around `place` from which the input resembles most what the piece before goes on
  /// with; of those that hardly differ the closest.
  [[nodiscard]] int64_t bestStart(int64_t place) const {
    const int64_t rough = bestAround(place, reach_, kCoarse);
    return bestAround(rough, std::min(kCoarse - 1, reach_ - std::abs(rough - place)), 1);
  }

  [[nodiscard]] int64_t bestAround(int64_t middle, int64_t reach, int64_t step) const {
    constexpr float kHardly = 1e-3f;
    int64_t best = middle;
    float most = likeness(middle, step);
    for (int64_t away = step; away <= reach; away += step) {
      for (const int64_t start : {middle - away, middle + away}) {
        const float found = likeness(start, step);
        if (found <= most + kHardly * std::abs(most)) continue;
        most = found;
        best = start;
      }
    }
    return best;
  }

  [[nodiscard]] float likeness(int64_t start, int64_t step) const {
    if (start < first_) return 0;
    const float* const wanted = mono_.data() + (goesOn_ - first_);
    const float* const offered = mono_.data() + (start - first_);
    float product = 0, energy = 0;
    for (int64_t i = 0; i < hop_; i += step) {
      product += wanted[i] * offered[i];
      energy += offered[i] * offered[i];
    }
    return energy > 0 ? product / std::sqrt(energy) : 0;
  }

  /// Lets go of input that no piece can begin in any more.
  void forget() {
    const int64_t needed = std::min(goesOn_, place() - reach_);
    const int64_t count = needed - first_;
    if (count < hop_) return;
    input_.erase(input_.begin(), input_.begin() + 2 * count);
    mono_.erase(mono_.begin(), mono_.begin() + count);
    first_ = needed;
  }

  const double rate_;
  const int64_t hop_;
  const int64_t reach_;
  std::vector<float> rise_;  ///< from 0 to 1 in a hop
  std::vector<float> input_, mono_;
  int64_t first_ = -2 * hop_;  ///< input frame that the kept input begins with
  int64_t goesOn_ = 0;         ///< input frame that follows the first half of the piece before
  int64_t nextPiece_ = 0;
  int64_t framesIn_ = 0;
};

}  // namespace

std::unique_ptr<TimeStretch> TimeStretch::create(int sampleRate, double rate) {
  return std::make_unique<PieceStretch>(sampleRate,
                                        std::isnan(rate) ? 1.0 : std::clamp(rate, 0.5, 2.0));
}

}  // namespace zaffo::media
