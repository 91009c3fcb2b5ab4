// SPDX-License-Identifier: Apache-2.0
#pragma once

// The only place that includes Asio: stand-alone, without its deprecated parts.
#define ASIO_STANDALONE
#define ASIO_NO_DEPRECATED
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
