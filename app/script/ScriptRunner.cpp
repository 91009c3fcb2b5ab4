// SPDX-License-Identifier: Apache-2.0
#include "script/ScriptRunner.h"

#include <cstdio>
#include <utility>

namespace zaffo::feed {

namespace {

InputEvent inputEvent(InputEvent::Type type) {
  InputEvent event;
  event.type = type;
  event.hostTime = TimeSource::now();
  return event;
}

/// "Down", "Shift+/", "wheel down", "Ctrl+wheel up".
InputEvent keyEvent(std::string name) {
  InputEvent event = inputEvent(InputEvent::Type::KeyDown);
  const auto take = [&name](const std::string& prefix) {
    const bool has = name.size() > prefix.size() && name.starts_with(prefix);
    if (has) name.erase(0, prefix.size());
    return has;
  };
  event.withControl = take("Ctrl+");
  event.withShift = take("Shift+");
  if (name == "wheel down" || name == "wheel up") {
    event.type = InputEvent::Type::Wheel;
    event.wheelY = name == "wheel down" ? 1 : -1;
  } else {
    event.key = std::move(name);
  }
  return event;
}

InputEvent pointerEvent(const Command& command) {
  using Type = InputEvent::Type;
  const Type type = command.what == "down"   ? Type::PointerDown
                    : command.what == "move" ? Type::PointerMove
                                             : Type::PointerUp;
  InputEvent event = inputEvent(type);
  event.position = {command.number, command.down};
  return event;
}

InputEvent dropEvent(const std::string& path) {
  InputEvent event = inputEvent(InputEvent::Type::Drop);
  event.path = path;
  return event;
}

}  // namespace

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
    case Word::Press:
      host_.sendInput(keyEvent(command.what));
      break;
    case Word::Pointer:
      host_.sendInput(pointerEvent(command));
      break;
    case Word::Window:
      host_.sendInput(inputEvent(command.on ? InputEvent::Type::Show : InputEvent::Type::Hide));
      break;
    case Word::Drop:
      host_.sendInput(dropEvent(command.file));
      break;
    case Word::Status:
      host_.printStatus();
      break;
    case Word::Quit:
      break;
  }
  runNextSoon();
}

}  // namespace zaffo::feed
