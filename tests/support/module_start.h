// Test support: C_Initialize, then wait until the new monitor thread has written its start line,
// so that exact comparisons of the log that follow are not interleaved with it.
#pragma once

#include "cryptoki/cryptoki.h"
#include "support/log_capture.h"
#include "support/wait_until.h"

inline CK_RV initializeAndSettle(const LogCapture& log) {
    const auto startLine = infoLine("Session monitor thread started.");
    std::size_t startsBefore = 0;
    for (const auto& line : log.lines()) {
        startsBefore += line == startLine ? 1 : 0;
    }
    const CK_RV rv = C_Initialize(nullptr);
    if (rv == CKR_OK) {
        waitUntil([&] {
            std::size_t starts = 0;
            for (const auto& line : log.lines()) {
                starts += line == startLine ? 1 : 0;
            }
            return starts > startsBefore;
        });
    }
    return rv;
}
