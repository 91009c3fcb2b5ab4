#pragma once

// What waits for a descriptor of the system: only who owns sockets includes it.
#include "platform/dispatch/Asio.h"

#include <asio/posix/stream_descriptor.hpp>
