#include "script/ScriptRunner.h"

#include <cstdio>
#include <utility>

namespace zaffo::feed {

ScriptRunner::ScriptRunner(Private, std::vector<Command> commands, ScriptHost& host)
    : commands_(std::move(commands)), host_(host) {}

std::shared_ptr<ScriptRunner> ScriptRunner::create(std::vector<Command> commands,
                                                   ScriptHost& host) {
  return std::make_shared<ScriptRunner>(Private{}, std::move(commands), host);
}

void ScriptRunner::run(std::function<void(Ending)> ended) {
  ended_ = std::move(ended);
  runNextSoon();
}

void ScriptRunner::runNextSoon() {
  dispatch_async(dispatch_get_main_queue(), [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->runNext();
  });
}

void ScriptRunner::runNext() {
  const bool atEnd = next_ == commands_.size();
  if (atEnd || commands_[next_].word == Word::Quit) {
    ending_.quit = !atEnd;
    return ended_(ending_);
  }
  execute(commands_[next_++]);
}

ScriptHost::Outcome ScriptRunner::outcome() {
  auto finish = [weakSelf = weak_from_this(), number = next_](const std::string& error) {
    if (const auto self = weakSelf.lock()) self->finishCommand(number, error);
  };
  patience_ = dispatch_timer_after(kPatience, dispatch_get_main_queue(), [finish] {
    finish("nothing has happened for " + std::to_string(kPatience / 1'000'000'000) + " seconds");
  });
  return finish;
}

void ScriptRunner::finishCommand(std::size_t number, const std::string& error) {
  if (number != next_ || !patience_) return;  // it has ended already
  std::exchange(patience_, nullptr)->cancel();
  if (!error.empty()) {
    const Command& command = commands_[number - 1];
    std::fprintf(stderr, "zaffo-feed: script, line %d, column %d: %s\n", command.line,
                 command.column, error.c_str());
    ending_.failed = true;
  }
  runNextSoon();
}

void ScriptRunner::execute(const Command& command) {
  switch (command.word) {
    case Word::Wait:
      patience_ = dispatch_timer_after(static_cast<int64_t>(command.number * 1e9),
                                       dispatch_get_main_queue(),
                                       [weakSelf = weak_from_this(), number = next_] {
                                         if (const auto self = weakSelf.lock())
                                           self->finishCommand(number, {});
                                       });
      return;
    case Word::WaitFrame:
      return host_.waitForFrame(outcome());
    case Word::Seek:
      return host_.seek(command.number, outcome());
    case Word::Shot:
      return host_.shot(command.file, outcome());
    case Word::Next:
      host_.scrollBy(1);
      break;
    case Word::Prev:
      host_.scrollBy(-1);
      break;
    case Word::Goto:
      host_.scrollTo(static_cast<int>(command.first - 1));
      break;
    case Word::Play:
      host_.setRate(1);
      break;
    case Word::Pause:
      host_.setRate(0);
      break;
    case Word::Rate:
      host_.setRate(static_cast<float>(command.number));
      break;
    case Word::Volume:
      host_.setVolume(static_cast<float>(command.number));
      break;
    case Word::State:
      host_.printState();
      break;
    case Word::Idle:
      host_.setIdle(command.on);
      break;
    case Word::Fast:
      host_.setFast(command.on);
      break;
    case Word::Bounds:
      host_.setBounds(command.first, command.second);
      break;
    case Word::Reset:
      host_.resetMediaServices();
      break;
    case Word::Quit:
      break;
  }
  runNextSoon();
}

}  // namespace zaffo::feed
