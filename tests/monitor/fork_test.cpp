// A child process made by fork() gets a module of its own when it initialises.
#if !defined(_WIN32)
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"
#include "support/wait_until.h"

namespace dd = devicedouble;

namespace {

// Runs in the child: every step must work as in a freshly loaded module. The exit code tells
// the parent which step failed.
int childChecks() {
    CK_INFO info;
    if (C_GetInfo(&info) != CKR_CRYPTOKI_NOT_INITIALIZED) return 10;
    if (C_Initialize(nullptr) != CKR_OK) return 11;
    if (C_GetInfo(&info) != CKR_OK) return 12;
    CK_SLOT_ID slot = 0;
    // The child's own monitor sees the device and raises its own first event.
    if (C_WaitForSlotEvent(0, &slot, nullptr) != CKR_OK || slot != 0x50000001) return 13;
    if (C_Finalize(nullptr) != CKR_OK) return 14;
    return 0;
}

int waitForChild(pid_t child) {
    int status = 0;
    const bool ended = waitUntil(
        [&] { return waitpid(child, &status, WNOHANG) == child; }, std::chrono::seconds(10));
    if (!ended) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
}

#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
#else
constexpr bool kThreadSanitizer = false;
#endif

TEST(Fork, ChildInitialisesAFreshModuleWhileTheParentKeepsItsOwn) {
    if (kThreadSanitizer) {
        // ThreadSanitizer cannot follow threads that a forked child of a threaded process starts
        // ("dup thread with used id"); the other builds run this test.
        GTEST_SKIP() << "not supported under ThreadSanitizer";
    }
    LogCapture log;
    dd::reset();
    dd::addDevice("SER1", "Token one");
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    // Fork while the parent's monitor is busy, so that locks may be held at that moment.
    ASSERT_TRUE(waitUntil([] { return dd::callCount("getConnectedDeviceList") >= 1; }));

    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        _exit(childChecks());
    }
    EXPECT_EQ(waitForChild(child), 0);

    CK_INFO info;
    EXPECT_EQ(C_GetInfo(&info), CKR_OK);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
}

}  // namespace
#endif
