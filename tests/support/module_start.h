// Test support: C_Initialize, then wait until the new monitor thread has written its start line,
// so that exact comparisons of the log that follow are not interleaved with it.
#pragma once

#include <algorithm>

#include "cryptoki/cryptoki.h"
#include "support/log_capture.h"
#include "support/wait_until.h"

inline CK_RV initializeAndSettle(const LogCapture& log) {
    const auto startsSoFar = [&log] {
        const auto lines = log.lines();
        return std::count(lines.begin(), lines.end(), infoLine("Session monitor thread started."));
    };
    const auto startsBefore = startsSoFar();
    const CK_RV rv = C_Initialize(nullptr);
    if (rv == CKR_OK) {
        waitUntil([&] { return startsSoFar() > startsBefore; });
    }
    return rv;
}
