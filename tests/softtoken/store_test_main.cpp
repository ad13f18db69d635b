// The store tests mount file systems (a small tmpfs, read-only views of a folder). They do it in
// a mount namespace of their own, made here while the program has one thread, so that nothing
// they mount is seen outside the program or outlives it. Where that is not permitted (not
// root), the tests that need mounts skip.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include "store_mounts.h"

int main(int argc, char** argv) {
    const bool ownMounts = unshare(CLONE_NEWNS) == 0 &&
                           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    softtoken::testing::setMountsPermitted(ownMounts);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
