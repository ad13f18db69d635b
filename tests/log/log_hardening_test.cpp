// The log writes under a temporary folder that every user shares: it must not follow links that
// another user planted there, nor write into folders that another user owns.
#include <sys/stat.h>
#include <unistd.h>

#include "log/log.h"
#include "log_test_fixture.h"

namespace {

constexpr uid_t kNobody = 65534;

bool holdsAnyFile(const fs::path& folder) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_directory()) {
            return true;
        }
    }
    return false;
}

class LogHardeningTest : public LogTest {
protected:
    void SetUp() override {
        LogTest::SetUp();
        attacker_ = root_ / "attacker";
        fs::create_directory(attacker_);
        fs::permissions(attacker_, fs::perms::all);
    }

    // Logs a few messages; each of them must be lost with the usual notice.
    void expectMessagesLost() {
        for (int i = 0; i < 3; ++i) {
            testing::internal::CaptureStdout();
            logError("secret " + decimalText(i));
            EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nUnable to write log");
        }
    }

    fs::path attacker_;
};

TEST_F(LogHardeningTest, MakerFolderLinkIsNotFollowed) {
    fs::create_directory(attacker_ / kTestProcessName);
    fs::permissions(attacker_ / kTestProcessName, fs::perms::all);
    fs::create_directory_symlink(attacker_, makerFolder());
    expectMessagesLost();
    EXPECT_FALSE(holdsAnyFile(attacker_));
}

TEST_F(LogHardeningTest, ProcessFolderLinkIsNotFollowed) {
    fs::create_directory(makerFolder());
    fs::create_directory_symlink(attacker_, processFolder());
    expectMessagesLost();
    EXPECT_FALSE(holdsAnyFile(attacker_));
}

TEST_F(LogHardeningTest, LogFileLinkIsNotFollowed) {
    makeLogFolders();
    const fs::path victim = attacker_ / "victim";
    std::ofstream(victim) << "untouched";
    fs::create_symlink(victim, logFile());
    expectMessagesLost();
    EXPECT_EQ(readFile(victim), "untouched");
}

TEST_F(LogHardeningTest, FoldersOwnedByAnotherUserAreNotUsed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "handing a folder to another user needs root";
    }
    for (const bool makerIsForeign : {true, false}) {
        SCOPED_TRACE(makerIsForeign ? "maker folder" : "process folder");
        cleanTemporaryFolder();
        makeLogFolders();
        fs::permissions(makerFolder(), fs::perms::all);
        fs::permissions(processFolder(), fs::perms::all);
        const fs::path foreign = makerIsForeign ? makerFolder() : processFolder();
        ASSERT_EQ(::chown(foreign.c_str(), kNobody, kNobody), 0);
        expectMessagesLost();
        EXPECT_FALSE(fs::exists(logFile()));
    }
}

TEST_F(LogHardeningTest, CreatedFoldersAndFileAreForOwnerOnly) {
    // With no umask to narrow them, the modes seen are exactly the ones the log asked for.
    const mode_t previousMask = ::umask(0);
    logError("makes the maker folder");
    logError("makes the process folder");
    ::umask(previousMask);
    EXPECT_EQ(fs::status(makerFolder()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(processFolder()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(logFile()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

}  // namespace
