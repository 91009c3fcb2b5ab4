// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/ThreadSet.h"

#include <unistd.h>

#include <chrono>
#include <system_error>
#include <utility>

#include "platform/Thread.h"

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
    startThread(name, [this, end, run = std::move(body)] {
      setOfThisThread = this;
      run();
      end();
    }).detach();
  } catch (const std::system_error&) {
    end();
    return false;
  }
  return true;
}

ThreadSet::ThreadSet() : process_(getpid()) {}

bool ThreadSet::isOfParent() const {
  return getpid() != process_;
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
