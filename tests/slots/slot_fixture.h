// Common ground of the slot tests: an initialised module over a freshly reset device double.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"

using Lines = std::vector<std::string>;

inline void addToken(const std::string& serial, const std::string& model = "OT2-S") {
    devicedouble::addDevice(devicedouble::makeTokenInfo(serial, "Token", model));
}
inline std::vector<CK_SLOT_ID> slotList() {
    std::vector<CK_SLOT_ID> slots(16);
    CK_ULONG count = static_cast<CK_ULONG>(slots.size());
    EXPECT_EQ(C_GetSlotList(CK_TRUE, slots.data(), &count), CKR_OK);
    slots.resize(count);
    return slots;
}

class SlotTest : public ::testing::Test {
protected:
    void SetUp() override {
        devicedouble::reset();
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    }
    void TearDown() override {
        devicedouble::openDeviceListGate();
        C_Finalize(nullptr);
    }
    Lines callLines() { return log.newCallLines(); }
    LogCapture log;
};

// A text padded with NULs, or cut, to a field's width.
inline Bytes fieldBytes(const std::string& text, std::size_t width) {
    Bytes bytes(text.begin(), text.end());
    bytes.resize(width, 0);
    return bytes;
}
template <std::size_t Width>
Bytes bytesOf(const unsigned char (&field)[Width]) {
    return Bytes(field, field + Width);
}

// A Cryptoki structure inside a larger 0xAA-filled buffer, so that writes past it show.
template <typename Info>
struct Guarded {
    static constexpr std::size_t kMargin = 512;
    Guarded() { std::memset(raw, 0xAA, sizeof raw); }
    Info* info() { return reinterpret_cast<Info*>(raw + kMargin); }
    bool marginsUntouched() const {
        for (std::size_t i = 0; i < sizeof raw; ++i) {
            if ((i < kMargin || i >= kMargin + sizeof(Info)) && raw[i] != 0xAA)
                return false;
        }
        return true;
    }
    alignas(Info) unsigned char raw[sizeof(Info) + 2 * kMargin]{};
};

// No slot in a table of two; the last would be the first slot if cut to 32 bits.
inline std::vector<CK_SLOT_ID> invalidSlotIds() {
    std::vector<CK_SLOT_ID> ids = {0, 0x50000000, 0x50000003};
    if (sizeof(CK_SLOT_ID) > 4)
        ids.push_back(static_cast<CK_SLOT_ID>(0x150000001ULL));
    return ids;
}
