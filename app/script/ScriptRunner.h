// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "script/Script.h"

namespace zaffo::feed {

/// What a script can do to the feed. Completions are called once, inside the call or later, on the
/// main thread. Thread: main.
class ScriptHost {
 public:
  /// Receives what went wrong; empty when nothing did.
  using Outcome = std::function<void(std::string error)>;

  virtual ~ScriptHost() = default;
  virtual void scrollBy(int pages) = 0;
  virtual void scrollTo(int page) = 0;
  virtual void waitForFrame(Outcome done) = 0;
  virtual void setRate(float rate) = 0;
  virtual void seek(double seconds, Outcome done) = 0;
  virtual void setVolume(float volume) = 0;
  virtual void shot(const std::string& file, Outcome done) = 0;
  virtual void printState() = 0;
  virtual void setIdle(bool on) = 0;
  virtual void setFast(bool on) = 0;
  virtual void setBounds(long most, long mostWhileIdle) = 0;
  virtual void resetMediaServices() = 0;
  /// What a person at the window would do.
  virtual void sendInput(InputEvent event) = 0;
  virtual void printStatus() = 0;
};

/// Runs a script's commands one after the other, each in its own turn of the main loop. A command
/// that fails is reported and the next one runs. Thread: main.
class ScriptRunner : public std::enable_shared_from_this<ScriptRunner> {
  struct Private {};

 public:
  /// A command that has not ended after this many nanoseconds fails.
  static constexpr int64_t kPatience = 10'000'000'000;

  /// How a script ended.
  struct Ending {
    bool quit = false;    ///< by a `quit`, after which more commands may have followed
    bool failed = false;  ///< a command failed
  };

  ScriptRunner(Private, std::vector<Command> commands, ScriptHost& host);
  /// `host` outlives the runner.
  [[nodiscard]] static std::shared_ptr<ScriptRunner> create(std::vector<Command> commands,
                                                            ScriptHost& host);

  /// Starts; `ended` is called once.
  void run(std::function<void(Ending)> ended);

 private:
  void runNextSoon();
  void runNext();
  void execute(const Command& command);
  void finishCommand(std::size_t number, const std::string& error);
  [[nodiscard]] ScriptHost::Outcome outcome();

  const std::vector<Command> commands_;
  ScriptHost& host_;
  std::function<void(Ending)> ended_;
  Ending ending_;
  std::size_t next_ = 0;
  DispatchTimerPtr patience_;  // while a command that may take long is running
};

}  // namespace zaffo::feed
