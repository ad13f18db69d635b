// What the tests of the cryptographic operations share: an initialised module over three tokens
// of the device double holding the same key pairs, and a read-write public session on the first.
//   SER1, slot 0x50000001: FIPS 140-3 (model OT2-S), firmware 2.1.0
//   SER2, slot 0x50000002: outside FIPS 140-3 mode (model OT1-F), firmware 2.1.0
//   SER3, slot 0x50000003: FIPS 140-3, firmware 1.9.9, below the gate of PSS, OAEP and ECDH
// Pairs: 1 RSA-2048 storing its bare modulus, 2 RSA-1024, 3 EC P-256, 4 RSA-2048 whose public
// value is DER, 5 RSA-3072, 6 RSA-4096 with the deletion flag set.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "core/module_state.h"
#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"

namespace dd = devicedouble;

constexpr CK_SLOT_ID kFipsSlot = 0x50000001;
constexpr CK_SLOT_ID kNonFipsSlot = 0x50000002;
constexpr CK_SLOT_ID kOldFirmwareSlot = 0x50000003;
constexpr CK_FLAGS kReadOnly = CKF_SERIAL_SESSION;
constexpr CK_FLAGS kReadWrite = CKF_SERIAL_SESSION | CKF_RW_SESSION;
constexpr CK_OBJECT_HANDLE kRsaPrivate = 0x70000001;
constexpr CK_OBJECT_HANDLE kRsaPublic = 0x70001001;
constexpr CK_OBJECT_HANDLE kEcPrivate = 0x70000003;
constexpr CK_OBJECT_HANDLE kEcPublic = 0x70001003;

// Above 32 bits, and kRsaPrivate if cut to 32 bits (64-bit Linux only; else kRsaPrivate).
constexpr bool kWideUlong = sizeof(CK_ULONG) > 4;
constexpr CK_ULONG kWideRsaPrivate =
    static_cast<CK_ULONG>(kWideUlong ? (std::uint64_t{1} << 32) + kRsaPrivate : kRsaPrivate);

using Lines = std::vector<std::string>;

// The entry line of `name`, then one error line.
inline Lines refused(const std::string& name, const std::string& line) {
    return {infoLine(name), errorLine(line)};
}

class CryptoTest : public ::testing::Test {
protected:
    void SetUp() override {
        dd::reset();
        dd::addDevice(dd::makeTokenInfo("SER1", "One", "OT2-S", "2.1.0"));
        dd::addDevice(dd::makeTokenInfo("SER2", "Two", "OT1-F", "2.1.0"));
        dd::addDevice(dd::makeTokenInfo("SER3", "Three", "OT2-S", "1.9.9"));
        const std::vector<OstrelKeyPair> pairs = {
            dd::KeyPairBuilder(1),
            dd::KeyPairBuilder(2).keyType(kKeyTypeRsa1024),
            dd::KeyPairBuilder(3).keyType(kKeyTypeEcP256),
            dd::KeyPairBuilder(4).publicValue({0x30, 0x03, 0x02, 0x01, 0x07}),
            dd::KeyPairBuilder(5).keyType(kKeyTypeRsa3072),
            dd::KeyPairBuilder(6).keyType(kKeyTypeRsa4096).deletionFlag(true)};
        for (const char* serial : {"SER1", "SER2", "SER3"}) {
            dd::setKeyPairs(serial, pairs);
        }
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        listSlots();
        session = open(kFipsSlot, kReadWrite);
    }
    void TearDown() override { C_Finalize(nullptr); }

    static void listSlots() {
        CK_SLOT_ID slots[3];
        CK_ULONG count = 3;
        ASSERT_EQ(C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
        ASSERT_EQ(count, 3u);
    }
    // Opens a session and forgets what that wrote and called.
    CK_SESSION_HANDLE open(CK_SLOT_ID slot, CK_FLAGS flags) {
        CK_SESSION_HANDLE handle = 0;
        EXPECT_EQ(C_OpenSession(slot, flags, nullptr, nullptr, &handle), CKR_OK);
        forget();
        return handle;
    }
    void loginUser() {
        std::string pin = dd::kDefaultUserPin;
        ASSERT_EQ(
            C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size()),
            CKR_OK);
        forget();
    }
    void forget() {
        log.newLines();
        dd::clearCalls();
    }

    // The session's operation context (one thread uses the session at a time in these tests).
    static OperationContext& context(CK_SESSION_HANDLE handle) {
        MutexLock tables(moduleState().tableMutex);
        return moduleState().sessionTable.find(static_cast<std::uint32_t>(handle))->operation;
    }
    static std::uint32_t activeOperation(CK_SESSION_HANDLE handle) {
        return context(handle).activeOperation;
    }

    // The code, and exactly the lines written since the last look (without the monitor's).
    void expectAnswer(CK_RV rv, CK_RV expected, const Lines& lines) {
        EXPECT_EQ(rv, expected) << (lines.empty() ? "" : lines.back());
        EXPECT_EQ(log.newCallLines(), lines);
    }
    std::string lastLine() {
        const Lines lines = log.newCallLines();
        return lines.empty() ? std::string() : lines.back();
    }
    // The only call of the operation since the last forget().
    static dd::Call onlyCall(const std::string& operation) {
        const std::vector<dd::Call> calls = dd::calls(operation);
        EXPECT_EQ(calls.size(), 1u) << operation;
        return calls.empty() ? dd::Call{} : calls.front();
    }

    static CK_MECHANISM mechanism(CK_MECHANISM_TYPE type) { return {type, nullptr, 0}; }
    static Bytes bytes(const std::string& text) { return Bytes(text.begin(), text.end()); }
    static Bytes concat(Bytes a, const Bytes& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    }
    static OstrelKeyPair pair(std::uint32_t id) { return dd::keyPairs("SER1").at(id - 1); }
    static Bytes keyReference(std::uint32_t id) {
        const OstrelKeyPair keyPair = pair(id);
        return Bytes(keyPair.keyReference, keyPair.keyReference + kObjectReferenceSize);
    }
    static Bytes publicValue(std::uint32_t id) {
        const OstrelKeyPair keyPair = pair(id);
        return Bytes(keyPair.publicValue, keyPair.publicValue + keyPair.publicValueLength);
    }

    LogCapture log;
    CK_SESSION_HANDLE session = 0;
};
