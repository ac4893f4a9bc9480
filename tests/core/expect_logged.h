// One line per expectation of a log line; in builds without logger output it expects nothing.
#pragma once

#include <gmock/gmock.h>

#include <string>

#include "tests/support/log_capture.h"

/// `log`, a LogCapture, holds a record of this text and priority: EXPECT_LOGGED(log, debug, "...").
#define EXPECT_LOGGED(log, priority, text)                                               \
  do {                                                                                   \
    if (::nox::kLoggerOutput) {                                                          \
      EXPECT_THAT((log).texts(::nox::priority), ::testing::Contains(std::string(text))); \
    }                                                                                    \
  } while (false)
