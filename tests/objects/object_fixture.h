// What the object tests share: an initialised module over one token of the device double
// ("OBJ1" in slot 0x50000001, user PIN 123456), helpers to open sessions, log in, search and
// read attributes, and certificate DER that the double answers scripted details for.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"

namespace dd = devicedouble;
using Bytes = std::vector<unsigned char>;

constexpr CK_SLOT_ID kSlot = 0x50000001;
constexpr CK_FLAGS kReadOnly = CKF_SERIAL_SESSION;
constexpr CK_FLAGS kReadWrite = CKF_SERIAL_SESSION | CKF_RW_SESSION;
// 2^32 where CK_ULONG is wider than 32 bits (64-bit Linux), 0 elsewhere: added to a valid
// handle it makes one that must not alias it by truncation.
constexpr CK_ULONG kAbove32Bits = (CK_ULONG{1} << 16) << 16;

class ObjectTest : public ::testing::Test {
protected:
    void SetUp() override {
        dd::reset();
        dd::addDevice("OBJ1", "Object token");
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        CK_SLOT_ID slot = 0;
        CK_ULONG count = 1;
        ASSERT_EQ(C_GetSlotList(CK_TRUE, &slot, &count), CKR_OK);
        log.newLines();
    }
    void TearDown() override { C_Finalize(nullptr); }

    CK_SESSION_HANDLE open(CK_FLAGS flags = kReadWrite) {
        CK_SESSION_HANDLE handle = 0;
        EXPECT_EQ(C_OpenSession(kSlot, flags, nullptr, nullptr, &handle), CKR_OK);
        log.newLines();
        return handle;
    }
    void login(CK_SESSION_HANDLE session) {
        std::string pin = dd::kDefaultUserPin;
        EXPECT_EQ(
            C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size()),
            CKR_OK);
        log.newLines();
    }

    // Every handle a complete search hands out, in order.
    std::vector<CK_OBJECT_HANDLE> findAll(CK_SESSION_HANDLE session,
                                          std::vector<CK_ATTRIBUTE> search = {}) {
        EXPECT_EQ(
            C_FindObjectsInit(session, search.empty() ? nullptr : search.data(), search.size()),
            CKR_OK);
        std::vector<CK_OBJECT_HANDLE> found;
        CK_OBJECT_HANDLE page[3];
        CK_ULONG count = 0;
        do {
            EXPECT_EQ(C_FindObjects(session, page, 3, &count), CKR_OK);
            found.insert(found.end(), page, page + count);
        } while (count == 3);
        EXPECT_EQ(C_FindObjectsFinal(session), CKR_OK);
        log.newLines();
        return found;
    }

    // One attribute's value as bytes; the call's result goes to *rv when given.
    Bytes attribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
        CK_ATTRIBUTE query{type, nullptr, 0};
        EXPECT_EQ(C_GetAttributeValue(session, object, &query, 1), CKR_OK) << type;
        Bytes value(query.ulValueLen);
        CK_ATTRIBUTE read{type, value.data(), static_cast<CK_ULONG>(value.size())};
        EXPECT_EQ(C_GetAttributeValue(session, object, &read, 1), CKR_OK) << type;
        value.resize(read.ulValueLen);
        log.newLines();
        return value;
    }
    CK_ULONG number(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
        const Bytes value = attribute(session, object, type);
        CK_ULONG result = 0;
        EXPECT_EQ(value.size(), sizeof result) << type;
        std::memcpy(&result, value.data(), std::min(value.size(), sizeof result));
        return result;
    }

    static CK_ATTRIBUTE numberAttribute(CK_ATTRIBUTE_TYPE type, CK_ULONG& value) {
        return {type, &value, sizeof value};
    }
    static CK_ATTRIBUTE bytesAttribute(CK_ATTRIBUTE_TYPE type, Bytes& value) {
        return {type, value.data(), static_cast<CK_ULONG>(value.size())};
    }
    static CK_ATTRIBUTE textAttribute(CK_ATTRIBUTE_TYPE type, std::string& value) {
        return {type, value.data(), static_cast<CK_ULONG>(value.size())};
    }

    // A made-up certificate: DER bytes the double answers with these details.
    static Bytes scriptedCertificate(const std::string& tag, const std::string& subjectCn,
                                     const std::string& issuerCn, const Bytes& publicKey = {}) {
        const Bytes der(tag.begin(), tag.end());
        dd::CertificateInfo info;
        info.details.subjectName = "CN=" + subjectCn + ",O=Example";
        info.details.subjectCommonName = subjectCn;
        info.details.issuerCommonName = issuerCn;
        info.details.issuerName = "CN=" + issuerCn + ",O=Example";
        info.details.publicKey = publicKey;
        info.subject = Bytes{0x30, 0x01, static_cast<unsigned char>(subjectCn.size())};
        info.issuer = Bytes{0x30, 0x02, static_cast<unsigned char>(issuerCn.size())};
        info.serial = Bytes{0x02, 0x01, 0x07};
        dd::setCertificateInfo(der, info);
        return der;
    }

    std::vector<std::string> callLines() { return log.newCallLines(); }

    LogCapture log;
};
