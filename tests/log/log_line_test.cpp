// What a line looks like, where it goes, and how the folders come to exist.
#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

#include <cstdlib>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "log/log.h"
#include "log_test_fixture.h"

namespace {

// Runs program with one argument and waits for it; true when it ran and exited with 0.
bool runProgram(const fs::path& program, const std::string& argument) {
#if defined(_WIN32)
    std::string commandLine = "\"" + program.string() + "\" \"" + argument + "\"";
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process)) {
        return false;
    }
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 1;
    ::GetExitCodeProcess(process.hProcess, &exitCode);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return exitCode == 0;
#else
    const std::string command = "'" + program.string() + "' '" + argument + "'";
    return std::system(command.c_str()) == 0;
#endif
}

TEST_F(LogTest, LineIsTimeStampTagMessageAndLineFeed) {
    makeLogFolders();
    writeLog(1, "exception line");
    writeLog(2, "error line");
    writeLog(3, "debug line");
    writeLog(0, "level zero");
    writeLog(4, "level four");
    writeLog(-7, "negative level");
    writeLog(2, "");
    const std::string content = readFile(logFile());
    EXPECT_EQ(withoutTimeStamps(content),
              "EXCEP ::=>exception line\n"
              "ERROR ::=>error line\n"
              "DEBUG ::=>debug line\n"
              "INFO  ::=>level zero\n"
              "INFO  ::=>level four\n"
              "INFO  ::=>negative level\n"
              "ERROR ::=>\n");
    // Binary mode: no carriage return, on Windows either.
    EXPECT_EQ(content.find('\r'), std::string::npos);

    // Day first, then month, as in the file's date; then a plausible time of day.
    std::smatch stamp;
    ASSERT_TRUE(std::regex_search(content, stamp, timeStampPattern()));
    const std::string date = todaysLogFileName();  // YYYY-MM-DD.LOG
    EXPECT_EQ(stamp[1].str(), date.substr(8, 2));
    EXPECT_EQ(stamp[2].str(), date.substr(5, 2));
    EXPECT_LT(std::stoi(stamp[3].str()), 24);
    EXPECT_LT(std::stoi(stamp[4].str()), 60);
    EXPECT_LT(std::stoi(stamp[5].str()), 61);
}

TEST_F(LogTest, MessageIsWrittenAsGivenEvenAcrossLines) {
    makeLogFolders();
    logError("first half\nsecond half");
    logError(std::string("nul\0inside", 10));
    EXPECT_EQ(withoutTimeStamps(readFile(logFile())),
              "ERROR ::=>first half\nsecond half\n" + std::string("ERROR ::=>nul\0inside\n", 21));
}

// One folder level per message: the first message on a clean machine makes the maker's folder
// and is lost, the second makes the process folder and is written.
TEST_F(LogTest, FirstMessageMakesMakerFolderAndIsLost) {
    testing::internal::CaptureStdout();
    logError("first");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nUnable to write log");
    EXPECT_TRUE(fs::is_directory(makerFolder()));
    EXPECT_FALSE(fs::exists(processFolder()));

    testing::internal::CaptureStdout();
    logError("second");
    logError("third");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(withoutTimeStamps(readFile(logFile())), "ERROR ::=>second\nERROR ::=>third\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(makerFolder()), fs::directory_iterator()), 1);
}

#if !defined(_WIN32)
// Every writer opens the file for appending by itself and writes a line in one call, which the
// system appends whole. Windows does the same for a write at the end-of-file offset on an
// append-only handle, but Wine, which runs our Windows tests, does not make that write atomic
// (it lost one line in several hundred runs), so the check runs where it can judge.
TEST_F(LogTest, ThreadsAppendWholeLines) {
    makeLogFolders();
    constexpr int kThreads = 4;
    constexpr int kLines = 100;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                logError("thread " + decimalText(t) + " line " + decimalText(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream lines(readFile(logFile()));
    const std::regex linePattern(
        R"(\d\d/\d\d::\d\d:\d\d:\d\d:\d\d\d-> ERROR ::=>thread \d line \d+)");
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_TRUE(std::regex_match(line, linePattern)) << line;
    }
    EXPECT_EQ(count, kThreads * kLines);
}
#endif

// The host's executable name is cut before its first ".": a.b.exe logs into the folder "a".
TEST_F(LogTest, ProcessFolderIsExecutableNameBeforeFirstDot) {
    // The probe is built beside this program, whose folder the log's code reports as its own.
    const fs::path probe = fs::path(platform::moduleFolder()) / OSTREL_LOG_PROBE_NAME;
    const fs::path host = root_ / ("host.with.dots" + probe.extension().string());
    fs::copy_file(probe, host);
    fs::create_directory(makerFolder());
    ASSERT_TRUE(runProgram(host, "probe line"));
    EXPECT_EQ(withoutTimeStamps(readFile(makerFolder() / "host" / todaysLogFileName())),
              "ERROR ::=>probe line\n");
}

}  // namespace
