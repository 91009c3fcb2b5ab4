// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace zaffo::streaming {

/// Which rendition of a stream comes next, by how fast bytes come and how much lies ahead: see
/// docs/streaming.md. Pure. Thread: any.
class RenditionChoice {
 public:
  /// Of the measured throughput, what a rendition may take.
  static constexpr double kShare = 0.7;
  /// What is taken for it while nothing was measured.
  static constexpr double kUnmeasured = 2'000'000;
  /// With less ahead nobody goes up.
  static constexpr double kSecondsToRise = 4;
  /// With so much ahead one that takes all of the throughput is kept.
  static constexpr double kSecondsToStay = 8;

  struct Present {
    std::size_t rendition = 0;
    std::optional<double> bitsPerSecond;  ///< the throughput; null while it is not known
    double secondsAhead = 0;              ///< from where reading is to the segment to be chosen
  };

  /// `bitsPerSecond` of the renditions, rising; one at least.
  explicit RenditionChoice(std::vector<int64_t> bitsPerSecond)
      : renditions_(std::move(bitsPerSecond)) {}

  [[nodiscard]] std::size_t first(std::optional<double> throughput) const;
  [[nodiscard]] std::size_t next(const Present& present) const;

 private:
  [[nodiscard]] std::size_t fitting(double throughput) const;

  std::vector<int64_t> renditions_;
};

}  // namespace zaffo::streaming
