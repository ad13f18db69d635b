// libFuzzer entry points of the harness that drives the module through its Cryptoki entry
// points, over the in-memory device double. An input is a world header (device_world.cpp)
// followed by calls: one byte chooses the call, its arguments follow (call_input.h).
//
// Inputs are independent: each builds its world anew and ends with C_Finalize. The module's
// diagnostic log goes to a private folder at the level OSTREL_FUZZ_LOG_LEVEL names (0, silent,
// by default: a log line costs a file open, which would dominate); at other levels the folder is
// emptied now and then so that it stays small, and kept at exit for reading.
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "call_state.h"
#include "core/module_state.h"
#include "device_double.h"
#include "module_calls.h"
#include "platform/platform.h"

using namespace modulefuzz;

namespace {

namespace fs = std::filesystem;

// The harness's temporary folder: the log, the settings file, the installation folder.
fs::path& privateFolder() {
    static fs::path folder;
    return folder;
}

int logLevel() {
    const char* level = std::getenv("OSTREL_FUZZ_LOG_LEVEL");
    return level != nullptr ? std::atoi(level) : 0;
}

void removePrivateFolder() {
    std::error_code ignored;
    fs::remove_all(privateFolder(), ignored);
}

void emptyLogFolder() {
    std::error_code ignored;
    fs::remove_all(privateFolder() / "Kelvanetics", ignored);
}

// One input's calls at most: enough for any sequence worth having, short enough to stay fast.
constexpr int kMostCallsPerInput = 256;

// The order is the layout of the seeds (make_corpus.py names the same numbers).
const Call kCalls[] = {
    scriptDevice,
    callInitialize,
    callFinalize,
    callGetInfo,
    callGetSlotList,
    callGetSlotInfo,
    callGetTokenInfo,
    callGetMechanismList,
    callGetMechanismInfo,
    callWaitForSlotEvent,
    callOpenSession,
    callCloseSession,
    callCloseAllSessions,
    callGetSessionInfo,
    callLogin,
    callLogout,
    callPinAdministration,
    callUnsupported,
    callFindObjectsInit,
    callFindObjects,
    callFindObjectsFinal,
    callGetAttributeValue,
    callSetAttributeValue,
    callGetObjectSize,
    callCreateObject,
    callDestroyObject,
    callGenerateKeyPair,
    callDeriveKey,
    callDigestInit,
    callDigest,
    callDigestUpdate,
    callDigestFinal,
    callSignInit,
    callSign,
    callSignUpdate,
    callSignFinal,
    callVerifyInit,
    callVerify,
    callVerifyUpdate,
    callVerifyFinal,
    callEncryptInit,
    callEncrypt,
    callDecryptInit,
    callDecrypt,
    callRandom,
};
constexpr std::size_t kCallCount = sizeof kCalls / sizeof kCalls[0];

}  // namespace

namespace modulefuzz {

std::string certificateFolder() {
    return (privateFolder() / "home" / "OstrelDSC" / "Certificates").string();
}

}  // namespace modulefuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::string pattern = (fs::temp_directory_path() / "ostrel-module-fuzz-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    privateFolder() = pattern;
    if (logLevel() > 0) {
        // Kept for reading: a finding is replayed with the log on.
        std::fprintf(stderr, "module log and settings in %s\n", pattern.c_str());
    } else {
        std::atexit(removePrivateFolder);
    }
    const fs::path settings = privateFolder() / "ostrel.conf";
    std::ofstream(settings) << "logLevel=" << logLevel() << "\n";
    platform::setSettingsFilePathForTesting(settings.string());
    // The log lands in TMPDIR; the certificate-authority folder under OSTREL_HOME is listed by
    // the double, never read from disk.
    ::setenv("TMPDIR", privateFolder().c_str(), 1);
    ::setenv("OSTREL_HOME", (privateFolder() / "home").c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static unsigned inputs = 0;
    CallInput in(data, size);
    CallState state;
    buildWorld(in, state);
    // Most inputs want an initialised module; a header bit leaves that to the input.
    if ((data == nullptr || size == 0 || (data[0] & 0x20) == 0)) {
        C_Initialize(nullptr);
    }
    for (int calls = 0; calls < kMostCallsPerInput && !in.done(); ++calls) {
        kCalls[in.byte() % kCallCount](in, state);
        state.endCall();
    }
    C_Finalize(nullptr);
    // An initialisation without a device instance leaves the monitor running, and C_Finalize
    // refuses to stop it (compatibility register, entry 2): it would go on polling into the
    // next inputs, allocating while libFuzzer counts allocations and scans for leaks. Stopped
    // here as unloading the module would stop it.
    stopMonitorIfAny();
    // What the double holds goes now rather than when the next input starts: an input that
    // leaves allocations behind makes libFuzzer look for leaks after it, which costs more
    // than the input itself.
    devicedouble::reset();
    // The same for the derived keys, which the module keeps until it is unloaded: left to grow,
    // they made one input in ten look like a leak, and libFuzzer gave up checking for leaks
    // after each input.
    moduleState().derivedKeys.resetForTesting();
    if (logLevel() > 0 && ++inputs % 1024 == 0) {
        emptyLogFolder();
    }
    return 0;
}
