#include "platform/dispatch/ThreadName.h"

#if defined(__linux__)
#include <pthread.h>
#endif

namespace zaffo {

void setThreadName([[maybe_unused]] const std::string& name) {
#if defined(__linux__)
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
#endif
}

}  // namespace zaffo
