#pragma once

// The one way Asio comes in: stand-alone, without what its old releases deprecate.
#define ASIO_STANDALONE
#define ASIO_NO_DEPRECATED
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
