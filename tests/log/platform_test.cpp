// The parts of the POSIX layer that the log tests do not already reach, and decimalText.
#include "log/log.h"
#include "log_test_fixture.h"

namespace {

TEST_F(LogTest, TemporaryFolderIsTmpdirWhenItIsAFolderElseTmp) {
    EXPECT_EQ(platform::temporaryFolder(), tmp_.string() + "/");
    ::setenv("TMPDIR", (tmp_.string() + "/").c_str(), 1);
    EXPECT_EQ(platform::temporaryFolder(), tmp_.string() + "/");

    std::ofstream(root_ / "file") << "not a folder";
    for (const fs::path& unusable : {root_ / "missing", root_ / "file", fs::path()}) {
        ::setenv("TMPDIR", unusable.c_str(), 1);
        EXPECT_EQ(platform::temporaryFolder(), "/tmp/") << unusable;
    }
    ::unsetenv("TMPDIR");
    EXPECT_EQ(platform::temporaryFolder(), "/tmp/");
}

TEST(PlatformTest, ModuleFolderHoldsThisProgram) {
    // The test program is the "module" here: the log's code is linked into it.
    const fs::path folder = platform::moduleFolder();
    ASSERT_FALSE(folder.empty());
    EXPECT_TRUE(fs::equivalent(folder, fs::read_symlink("/proc/self/exe").parent_path()));
}

TEST(DecimalTextTest, ExtremesOfEveryWidth) {
    EXPECT_EQ(decimalText(0), "0");
    EXPECT_EQ(decimalText(std::int32_t{-2147483647 - 1}), "-2147483648");
    EXPECT_EQ(decimalText(std::int32_t{2147483647}), "2147483647");
    EXPECT_EQ(decimalText(std::uint32_t{4294967295u}), "4294967295");
    EXPECT_EQ(decimalText(std::uint64_t{18446744073709551615u}), "18446744073709551615");
    EXPECT_EQ(decimalText(std::int64_t{-9223372036854775807 - 1}), "-9223372036854775808");
    EXPECT_EQ(decimalText(static_cast<unsigned long>(-1)),
              sizeof(unsigned long) == 8 ? "18446744073709551615" : "4294967295");
    EXPECT_EQ(decimalText(static_cast<signed char>(-5)), "-5");
    EXPECT_EQ(decimalText(static_cast<unsigned char>(200)), "200");
}

}  // namespace
