#include "platform/dispatch/ThreadSet.h"

#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/dispatch/ThreadName.h"

namespace zaffo {

namespace {
constexpr std::chrono::milliseconds kPatienceAtExit{500};
thread_local const ThreadSet* setOfThisThread = nullptr;
}  // namespace

bool ThreadSet::start(const std::string& name, std::function<void()> body) {
  {
    MutexLock lock(sizeMutex_);
    ++size_;
  }
  const auto end = [this] {
    MutexLock lock(sizeMutex_);
    --size_;
    sizeChanged_.notify_all();
  };
  try {
    std::thread([this, name, end, run = std::move(body)] {
      setOfThisThread = this;
      setThreadName(name);
      run();
      end();
    }).detach();
  } catch (const std::system_error&) {
    end();
    return false;
  }
  return true;
}

int ThreadSet::size() const {
  MutexLock lock(sizeMutex_);
  return size_;
}

void ThreadSet::waitAtExit() {
  if (setOfThisThread == this) return;
  const auto deadline = std::chrono::steady_clock::now() + kPatienceAtExit;
  MutexLock lock(sizeMutex_);
  while (size_ > 0) {
    if (sizeChanged_.wait_until(sizeMutex_, deadline) == std::cv_status::timeout) return;
  }
}

}  // namespace zaffo
