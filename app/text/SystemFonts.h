// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

struct FontFile {
  std::string path;
  long index = 0;
};

/// Which font of the system has a letter: asked of fontconfig, which reads files, and takes tens of
/// milliseconds for its first answer and up to some for others. So it is asked on a queue that may
/// wait, and what it said is kept. Thread: main.
class SystemFonts {
 public:
  struct Question {
    char32_t letter = 0;
    bool inColor = false;
    auto operator<=>(const Question&) const = default;
  };
  /// None when no font has it.
  using Answer = std::optional<FontFile>;

  [[nodiscard]] static SystemFonts& shared();

  /// What was answered; null when that was not asked yet.
  [[nodiscard]] const Answer* answerTo(const Question& question) const;
  /// Asks all of them on the queue, then calls `answered` in a block of the main queue.
  void ask(std::set<Question> questions, std::function<void()> answered);
  /// As if nothing had been asked.
  void forget() { answers_.clear(); }

  /// Asks on the calling thread, and keeps nothing. Thread: any.
  [[nodiscard]] static Answer askNow(const Question& question);

 private:
  std::map<Question, Answer> answers_;
  const DispatchQueuePtr queue_ = dispatch_queue_create_blocking("zaffo.feed.fonts");
};

}  // namespace zaffo::feed
