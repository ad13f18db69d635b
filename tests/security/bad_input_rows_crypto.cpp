// Rows of the matrix for the cryptographic operations: digests, signatures, verification,
// encryption and decryption, each with its Init, single-part, update and final calls; and the
// bad mechanisms, parameters and lengths the other crypto rows share. Object handle sweeps list
// their codes in the order of objectHandles() (bad_input_rows_objects.cpp).
#include <cstddef>

#include "bad_input_matrix.h"

namespace matrix {

namespace {

constexpr CK_RV kNotActive = CKR_OPERATION_NOT_INITIALIZED;
constexpr std::size_t kResultRoom = 512;
constexpr std::size_t kRsaResult = 256;     // signatures and ciphertexts of key pair 1
constexpr std::size_t kKeptPlaintext = 16;  // see Before::DecryptingKept

}  // namespace

// Mechanism types no function of the module takes, and (where CK_ULONG is wider) `accepted`
// plus 2^32, which must not be cut to `accepted`.
std::vector<CK_MECHANISM_TYPE> badMechanisms(CK_MECHANISM_TYPE accepted) {
    std::vector<CK_MECHANISM_TYPE> types = {0xFFFFFFFF, CKM_VENDOR_DEFINED, CKM_MD5,
                                            CKM_ECDSA_SHA512};
    if (kWide) {
        types.push_back(kAbove32Bits + accepted);
    }
    return types;
}

// Parameters for a mechanism that takes none: each is refused before it is read.
std::vector<Arg> parametersOf(CK_MECHANISM_TYPE type) {
    std::vector<Arg> mechanisms = {mechanism(type, null(), 1), mechanism(type, noAccess(), 0),
                                   mechanism(type, noAccess(), 0xFFFFFFFF),
                                   mechanism(type, input(8), 8),
                                   mechanism(type, null(), 0x7FFFFFFF)};
    if (kWide) {
        mechanisms.push_back(mechanism(type, null(), kAbove32Bits));
    }
    return mechanisms;
}

// Lengths that no device call can carry, refused before any byte is read (compatibility
// register, entry 38): above the device's int, and a small length plus 2^32. The bytes stand in
// a page that may not be touched.
std::vector<CK_ULONG> tooLong(CK_ULONG small) {
    std::vector<CK_ULONG> lengths = {0x80000000, 0xFFFFFFFF};
    if (kWide) {
        lengths.push_back(kAbove32Bits + small);
    }
    return lengths;
}

namespace {

// An Init's rows: a null mechanism, every bad type, parameters where none are taken, and the
// sweeps of key handles and session handles.
struct InitShape {
    const char* entry;
    Before before;
    CK_MECHANISM_TYPE plain;  // a mechanism without parameters that the Init takes
    CK_OBJECT_HANDLE key;
    std::vector<CK_RV> keyCodes;
};

std::vector<Row> initRows(const InitShape& init) {
    std::vector<Row> rows = {
        {init.entry, init.before, {session(), null(), num(init.key)}, kArgs},
        {init.entry, init.before, {session(), null(), num(0xFFFFFFFF)}, kArgs}};
    for (CK_MECHANISM_TYPE type : badMechanisms(init.plain)) {
        rows.push_back({init.entry,
                        init.before,
                        {session(), mechanism(type), num(init.key)},
                        CKR_MECHANISM_INVALID});
    }
    append(rows,
           objectSweep({init.entry, init.before, {session(), mechanism(init.plain), swept()}, 0},
                       init.keyCodes, kKey));
    append(rows,
           sweep({init.entry, init.before, {swept(), mechanism(init.plain), num(init.key)}, 0},
                 badSessions(), kSessionInvalid));
    return rows;
}

// The output of a single-part or final call, after its `leading` arguments: the length query
// keeps the result; the caller's stated room is overwritten with the result's length before any
// comparison, so a room stated as 0 or 1 still gets the whole result (compatibility register,
// entry 26). Every buffer here really has the room, so the rows pin the order without writing
// past the caller's memory; what lies beyond the result must stay untouched.
std::vector<Row> resultRows(const char* entry, Before before, const std::vector<Arg>& leading,
                            std::size_t resultSize) {
    const CK_ULONG required = resultSize;
    const auto rowWith = [&](Arg result, Arg length) {
        Row row{entry, before, leading, kOk};
        row.args.push_back(std::move(result));
        row.args.push_back(std::move(length));
        return row;
    };
    return {
        rowWith(null(), ulongOut(0, required)),
        rowWith(output(kResultRoom, resultSize), ulongOut(0, required)),
        rowWith(output(kResultRoom, resultSize), ulongOut(1, required)),
        rowWith(output(resultSize, resultSize), ulongOut(required, required)),
        rowWith(output(kResultRoom, resultSize), ulongOut(0xFFFFFFFF, required)),
    };
}

// Rows for a single-part call (C_Digest, C_Sign, C_Encrypt, C_Decrypt) whose operation `before`
// starts: null and empty input, a null length pointer, and its result.
std::vector<Row> singlePartRows(const char* entry, Before before, std::size_t inputSize,
                                std::size_t resultSize) {
    const Arg data = input(inputSize);
    const CK_ULONG size = inputSize;
    std::vector<Row> rows = {
        {entry, before, {session(), null(), num(size), output(kResultRoom, 0), ulongOut(0)}, kArgs},
        {entry,
         before,
         {session(), null(), num(0x7FFFFFFF), output(kResultRoom, 0), ulongOut(0)},
         kArgs},
        {entry, before, {session(), data, num(0), output(kResultRoom, 0), ulongOut(0)}, kArgs},
        {entry, before, {session(), data, num(size), output(kResultRoom, 0), null()}, kArgs},
        {entry,
         kSession,
         {session(), data, num(size), output(kResultRoom, 0), ulongOut(0)},
         kNotActive},
    };
    if (resultSize != 0) {
        append(rows, resultRows(entry, before, {session(), data, num(size)}, resultSize));
    }
    append(
        rows,
        sweep({entry, before, {swept(), data, num(size), output(kResultRoom, 0), ulongOut(0)}, 0},
              badSessions(), kSessionInvalid));
    return rows;
}

// C_DigestUpdate, C_SignUpdate, C_VerifyUpdate: a null or empty part.
std::vector<Row> updateRows(const char* entry, Before before) {
    std::vector<Row> rows = {{entry, before, {session(), null(), num(16)}, kArgs},
                             {entry, before, {session(), null(), num(0xFFFFFFFF)}, kArgs},
                             {entry, before, {session(), input(16), num(0)}, kArgs},
                             {entry, kSession, {session(), input(16), num(16)}, kNotActive}};
    append(rows, sweep({entry, before, {swept(), input(16), num(16)}, 0}, badSessions(),
                       kSessionInvalid));
    return rows;
}

// C_DigestFinal, C_SignFinal: a null length pointer, the length query, a buffer.
std::vector<Row> finalRows(const char* entry, Before before, std::size_t resultSize) {
    std::vector<Row> rows = {
        {entry, before, {session(), output(kResultRoom, 0), null()}, kArgs},
        {entry, kSession, {session(), output(kResultRoom, 0), ulongOut(0)}, kNotActive},
    };
    append(rows, resultRows(entry, before, {session()}, resultSize));
    append(rows, sweep({entry, before, {swept(), output(kResultRoom, 0), ulongOut(0)}, 0},
                       badSessions(), kSessionInvalid));
    return rows;
}

std::vector<Row> digestRows() {
    std::vector<Row> rows = {
        {"C_DigestInit", kSession, {session(), null()}, kArgs},
        // Digest parameters are never read.
        {"C_DigestInit", kSession, {session(), mechanism(CKM_SHA256, noAccess(), 0xFFFFFFFF)}, kOk},
    };
    for (CK_MECHANISM_TYPE type : badMechanisms(CKM_SHA256)) {
        rows.push_back(
            {"C_DigestInit", kSession, {session(), mechanism(type)}, CKR_MECHANISM_INVALID});
    }
    append(rows, sweep({"C_DigestInit", kSession, {swept(), mechanism(CKM_SHA256)}, 0},
                       badSessions(), kSessionInvalid));
    append(rows, singlePartRows("C_Digest", Before::Digesting, 16, 32));
    append(rows, updateRows("C_DigestUpdate", Before::Digesting));
    append(rows, finalRows("C_DigestFinal", Before::Digesting, 32));
    return rows;
}

std::vector<Row> signRows() {
    // Every handle from 0x70000000 up counts as a private key's; an EC key passes the Init
    // whatever the mechanism.
    std::vector<Row> rows =
        initRows({"C_SignInit",
                  kUser,
                  CKM_RSA_PKCS,
                  kRsaPrivate,
                  {kKey, kKey, kOk, kKey, kOk, kKey, kKey, kKey, kKey, kKey, kKey, kKey, kKey}});
    for (const Arg& withParameters : parametersOf(CKM_RSA_PKCS)) {
        rows.push_back({"C_SignInit",
                        kUser,
                        {session(), withParameters, num(kRsaPrivate)},
                        CKR_MECHANISM_PARAM_INVALID});
    }
    // PSS parameters are never read (compatibility register, entry 31).
    rows.push_back(
        {"C_SignInit",
         kUser,
         {session(), mechanism(CKM_SHA256_RSA_PKCS_PSS, noAccess(), 0xFFFFFFFF), num(kRsaPrivate)},
         kOk});
    rows.push_back({"C_SignInit",
                    kUser,
                    {session(), mechanism(CKM_RSA_PKCS_PSS, null(), 0xFFFFFFFF), num(kRsaPrivate)},
                    kOk});
    append(rows, singlePartRows("C_Sign", Before::Signing, 16, kRsaResult));
    for (CK_ULONG length : tooLong(16)) {
        rows.push_back({"C_Sign",
                        Before::Signing,
                        {session(), noAccess(), num(length), output(kResultRoom, 0), ulongOut(0)},
                        CKR_DATA_LEN_RANGE});
    }
    append(rows, updateRows("C_SignUpdate", Before::Signing));
    append(rows, finalRows("C_SignFinal", Before::SigningHashed, kRsaResult));
    return rows;
}

std::vector<Row> verifyRows() {
    // Either half of a pair selects it.
    std::vector<Row> rows =
        initRows({"C_VerifyInit",
                  kSession,
                  CKM_RSA_PKCS,
                  kRsaPublic,
                  {kKey, kKey, kOk, kKey, kOk, kOk, kOk, kKey, kKey, kKey, kKey, kKey, kKey}});
    // Verification reads no parameters, whatever the mechanism.
    rows.push_back({"C_VerifyInit",
                    kSession,
                    {session(), mechanism(CKM_RSA_PKCS, noAccess(), 0xFFFFFFFF), num(kRsaPublic)},
                    kOk});
    const Before verifying = Before::Verifying;
    const Arg data = input(16);
    const Arg signature = input(kRsaResult);
    const CK_ULONG signatureSize = kRsaResult;
    std::vector<Row> more = {
        {"C_Verify", verifying, {session(), null(), num(16), signature, num(signatureSize)}, kArgs},
        {"C_Verify", verifying, {session(), data, num(16), null(), num(signatureSize)}, kArgs},
        {"C_Verify", verifying, {session(), data, num(0), signature, num(signatureSize)}, kArgs},
        {"C_Verify", verifying, {session(), data, num(16), signature, num(0)}, kArgs},
        // A signature the device never made.
        {"C_Verify",
         verifying,
         {session(), data, num(16), signature, num(signatureSize)},
         CKR_SIGNATURE_INVALID},
        {"C_Verify",
         kSession,
         {session(), data, num(16), signature, num(signatureSize)},
         kNotActive},
        {"C_VerifyFinal", verifying, {session(), null(), num(signatureSize)}, kArgs},
        {"C_VerifyFinal", verifying, {session(), signature, num(0)}, kArgs},
        {"C_VerifyFinal",
         verifying,
         {session(), signature, num(signatureSize)},
         CKR_SIGNATURE_INVALID},
        {"C_VerifyFinal", kSession, {session(), signature, num(signatureSize)}, kNotActive},
    };
    append(rows, more);
    for (CK_ULONG length : tooLong(16)) {
        rows.push_back({"C_Verify",
                        verifying,
                        {session(), noAccess(), num(length), noAccess(), num(signatureSize)},
                        CKR_DATA_LEN_RANGE});
    }
    for (CK_ULONG length : tooLong(signatureSize)) {
        rows.push_back({"C_Verify",
                        verifying,
                        {session(), noAccess(), num(16), noAccess(), num(length)},
                        CKR_SIGNATURE_LEN_RANGE});
        rows.push_back({"C_VerifyFinal",
                        verifying,
                        {session(), noAccess(), num(length)},
                        CKR_SIGNATURE_LEN_RANGE});
    }
    append(
        rows,
        sweep({"C_Verify", verifying, {swept(), data, num(16), signature, num(signatureSize)}, 0},
              badSessions(), kSessionInvalid));
    append(rows, updateRows("C_VerifyUpdate", verifying));
    append(rows, sweep({"C_VerifyFinal", verifying, {swept(), signature, num(signatureSize)}, 0},
                       badSessions(), kSessionInvalid));
    return rows;
}

std::vector<Row> cipherRows() {
    // CKM_RSA_PKCS encrypts with either half (a private key's handle by its low 16 bits);
    // decryption takes every handle for a private key's, so a public key names no pair
    // (compatibility register, entry 31).
    std::vector<Row> rows =
        initRows({"C_EncryptInit",
                  kSession,
                  CKM_RSA_PKCS,
                  kRsaPublic,
                  {kKey, kKey, kOk, kKey, kOk, kOk, kOk, kKey, kKey, kKey, kKey, kKey, kKey}});
    append(
        rows,
        initRows({"C_DecryptInit",
                  kUser,
                  CKM_RSA_PKCS,
                  kRsaPrivate,
                  {kKey, kKey, kOk, kKey, kOk, kKey, kKey, kKey, kKey, kKey, kKey, kKey, kKey}}));
    // OAEP takes only public-key handles for encryption.
    append(rows,
           objectSweep(
               {"C_EncryptInit", kSession, {session(), mechanism(CKM_RSA_PKCS_OAEP), swept()}, 0},
               {kKey, kKey, kKey, kKey, kKey, kOk, kOk, kKey, kKey, kKey, kKey, kKey, kKey}, kKey));
    for (const Arg& withParameters : parametersOf(CKM_RSA_PKCS)) {
        rows.push_back({"C_EncryptInit",
                        kSession,
                        {session(), withParameters, num(kRsaPublic)},
                        CKR_MECHANISM_PARAM_INVALID});
        rows.push_back({"C_DecryptInit",
                        kUser,
                        {session(), withParameters, num(kRsaPrivate)},
                        CKR_MECHANISM_PARAM_INVALID});
    }
    // OAEP parameters are never read.
    rows.push_back(
        {"C_EncryptInit",
         kSession,
         {session(), mechanism(CKM_RSA_PKCS_OAEP, noAccess(), 0xFFFFFFFF), num(kRsaPublic)},
         kOk});
    rows.push_back(
        {"C_DecryptInit",
         kUser,
         {session(), mechanism(CKM_RSA_PKCS_OAEP, noAccess(), 0xFFFFFFFF), num(kRsaPrivate)},
         kOk});
    append(rows, singlePartRows("C_Encrypt", Before::Encrypting, 16, kRsaResult));
    // A ciphertext the device never made: the device refuses it, nothing is written.
    append(rows, singlePartRows("C_Decrypt", Before::Decrypting, kRsaResult, 0));
    rows.push_back({"C_Decrypt",
                    Before::Decrypting,
                    {session(), input(kRsaResult), num(kRsaResult), null(), ulongOut(0)},
                    CKR_FUNCTION_FAILED});
    // A plaintext kept by a length query is handed out whatever this call's data.
    append(rows, resultRows("C_Decrypt", Before::DecryptingKept,
                            {session(), input(kRsaResult), num(kRsaResult)}, kKeptPlaintext));
    rows.push_back(
        {"C_Decrypt",
         Before::Decrypting,
         {session(), input(kRsaResult), num(kRsaResult), output(kResultRoom, 0), ulongOut(0)},
         CKR_FUNCTION_FAILED});
    for (CK_ULONG length : tooLong(16)) {
        rows.push_back({"C_Encrypt",
                        Before::Encrypting,
                        {session(), noAccess(), num(length), output(kResultRoom, 0), ulongOut(0)},
                        CKR_DATA_LEN_RANGE});
    }
    for (CK_ULONG length : tooLong(kRsaResult)) {
        rows.push_back({"C_Decrypt",
                        Before::Decrypting,
                        {session(), noAccess(), num(length), output(kResultRoom, 0), ulongOut(0)},
                        CKR_ENCRYPTED_DATA_LEN_RANGE});
    }
    return rows;
}

}  // namespace

std::vector<Row> cryptoRows() {
    std::vector<Row> rows = digestRows();
    append(rows, signRows());
    append(rows, verifyRows());
    append(rows, cipherRows());
    append(rows, keyRows());
    append(rows, mechanismRows());
    return rows;
}

}  // namespace matrix
