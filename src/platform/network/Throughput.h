// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace zaffo::network {

/// How fast bytes come: an average over the time in which some were on their way, of which the
/// latest weighs most. It falls at once and rises slowly: the lower one of a short memory and a
/// long one. Times are in nanoseconds, of any clock that never goes back. Thread: the owner's.
class Throughput {
 public:
  /// A transfer began to bring bytes, or brings them again after a pause.
  void begin(int64_t now);
  void receive(int64_t bytes, int64_t now);
  /// It ended or pauses.
  void end(int64_t now);

  /// Null until enough came to tell.
  [[nodiscard]] std::optional<double> bitsPerSecond() const;

 private:
  class Average {
   public:
    explicit Average(double halfLife) : halfLife_(halfLife) {}
    void add(double bits, double seconds);
    [[nodiscard]] double value() const { return bits_ / seconds_; }

   private:
    double halfLife_;
    double bits_ = 0, seconds_ = 0;  // both fade alike
  };

  void close(int64_t now);

  Average brief_{2}, lasting_{8};  // seconds
  int transfers_ = 0;
  int64_t since_ = 0;
  int64_t pending_ = 0;  // bytes since then
  int64_t total_ = 0;
};

}  // namespace zaffo::network
