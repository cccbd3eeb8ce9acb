// Helpers of the book tests: captured output and record move fields.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include "test_support.h"

// What `body` writes to standard output.
inline std::string capture(const std::function<void()> &body) {
    testing::internal::CaptureStdout();
    body();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// A record's move field from coordinates, with a promotion field.
inline u16 record_move(const char *text, int promotion = 0) {
    return static_cast<u16>(sq_of(text + 2) | (sq_of(text) << 6) |
                            (promotion << 12));
}
