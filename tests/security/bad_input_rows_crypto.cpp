// Rows of the matrix for the cryptographic functions: digests, signatures, verification,
// encryption, decryption, key-pair generation, derivation and random numbers. Object handle
// sweeps list their codes in the order of objectHandles() (bad_input_rows_objects.cpp).
#include <algorithm>
#include <cstddef>

#include "bad_input_matrix.h"

namespace matrix {

namespace {

constexpr Before kSession = Before::Session;
constexpr Before kUser = Before::UserSession;
constexpr CK_RV kOk = CKR_OK;
constexpr CK_RV kKey = CKR_KEY_HANDLE_INVALID;
constexpr CK_RV kArgs = CKR_ARGUMENTS_BAD;
constexpr CK_RV kNotActive = CKR_OPERATION_NOT_INITIALIZED;
constexpr CK_RV kSessionInvalid = CKR_SESSION_HANDLE_INVALID;
constexpr std::size_t kResultRoom = 512;
constexpr std::size_t kRsaResult = 256;     // signatures and ciphertexts of key pair 1
constexpr std::size_t kKeptPlaintext = 16;  // see Before::DecryptingKept

void append(std::vector<Row>& rows, const std::vector<Row>& more) {
    rows.insert(rows.end(), more.begin(), more.end());
}

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

std::vector<Row> keyPairRows() {
    const char* entry = "C_GenerateKeyPair";
    const Arg rsa = mechanism(CKM_RSA_PKCS_KEY_PAIR_GEN);
    const Arg bits2048 = attributes({numberAttribute(CKA_MODULUS_BITS, 2048)});
    const Arg signs = attributes({attribute(CKA_SIGN, input({CK_TRUE}), 1)});
    const Arg ecKey = attributes({numberAttribute(CKA_KEY_TYPE, CKK_EC)});
    const Arg handle = ulongOut(0);
    // A template, its count, and the two handle pointers: one row each.
    const auto generate = [&](Arg mechanismArg, Arg publicTemplate, CK_ULONG publicCount,
                              Arg privateTemplate, CK_ULONG privateCount, Arg publicHandle,
                              Arg privateHandle, CK_RV expected) {
        return Row{entry,
                   kUser,
                   {session(), std::move(mechanismArg), std::move(publicTemplate), num(publicCount),
                    std::move(privateTemplate), num(privateCount), std::move(publicHandle),
                    std::move(privateHandle)},
                   expected};
    };
    std::vector<Row> rows = {
        generate(null(), bits2048, 1, signs, 1, handle, handle, kArgs),
        generate(rsa, bits2048, 0, signs, 1, handle, handle, kArgs),
        generate(rsa, bits2048, 1, signs, 0, handle, handle, kArgs),
        generate(rsa, bits2048, 1, signs, 1, null(), handle, kArgs),
        generate(rsa, bits2048, 1, signs, 1, handle, null(), kArgs),
        generate(rsa, attributes({numberAttribute(CKA_MODULUS_BITS, 1024)}), 1, signs, 1, handle,
                 handle, CKR_KEY_SIZE_RANGE),
        generate(rsa, attributes({numberAttribute(CKA_MODULUS_BITS, 0xFFFFFFFF)}), 1, signs, 1,
                 handle, handle, CKR_MECHANISM_INVALID),
        // A bit count one byte long counts as absent: RSA-2048 (compatibility register, entry 36).
        generate(rsa, attributes({attribute(CKA_MODULUS_BITS, input(1), 1)}), 1, signs, 1,
                 ulongOut(0), ulongOut(0), kOk),
        // Entries without values are passed over.
        generate(rsa,
                 attributes({attribute(CKA_MODULUS_BITS, null(), 0xFFFFFFFF),
                             attribute(CKA_PUBLIC_EXPONENT, null(), 0xFFFFFFFF)}),
                 2,
                 attributes({attribute(CKA_LABEL, null(), 0xFFFFFFFF),
                             attribute(CKA_ID, null(), 0xFFFFFFFF),
                             attribute(CKA_KEY_TYPE, input(8), 0)}),
                 3, ulongOut(0), ulongOut(0), kOk),
        // At most 128 bytes of a label and an id are read, whatever length they claim.
        generate(rsa, bits2048, 1,
                 attributes({attribute(CKA_LABEL, input(128), 0xFFFFFFFF),
                             attribute(CKA_ID, input(128), 0xFFFFFFFF),
                             attribute(CKA_SIGN, input(1), 0xFFFFFFFF)}),
                 3, ulongOut(0), ulongOut(0), kOk),
        // Attributes the generation does not use are never read; for an RSA pair that includes
        // CKA_EC_PARAMS.
        generate(
            rsa,
            attributes({numberAttribute(CKA_MODULUS_BITS, 2048),
                        attribute(CKA_PUBLIC_EXPONENT, noAccess(), 3),
                        attribute(CKA_EC_PARAMS, noAccess(), 10),
                        attribute(CKA_TOKEN, noAccess(), 1)}),
            4,
            attributes(
                {attribute(CKA_SIGN, input({CK_TRUE}), 1), attribute(CKA_PRIVATE, noAccess(), 1),
                 attribute(CKA_SENSITIVE, noAccess(), 1), attribute(0xFFFFFFFF, noAccess(), 8)}),
            4, ulongOut(0), ulongOut(0), kOk),
        generate(rsa, attributes({attribute(CKA_EC_PARAMS, input(10), 10)}), 1, ecKey, 1, handle,
                 handle, CKR_MECHANISM_INVALID),
        generate(rsa, attributes({attribute(CKA_EC_PARAMS, noAccess(), 0xFFFFFFFF)}), 1, ecKey, 1,
                 handle, handle, CKR_MECHANISM_INVALID),
    };
    for (CK_ULONG count : {CK_ULONG{1}, CK_ULONG{0xFFFFFFFF}}) {
        rows.push_back(generate(rsa, null(), count, signs, 1, handle, handle, kArgs));
        rows.push_back(generate(rsa, bits2048, 1, null(), count, handle, handle, kArgs));
    }
    for (const Arg& withParameters : parametersOf(CKM_RSA_PKCS_KEY_PAIR_GEN)) {
        rows.push_back(generate(withParameters, bits2048, 1, signs, 1, handle, handle,
                                CKR_MECHANISM_PARAM_INVALID));
    }
    if (kWide) {
        rows.push_back(generate(rsa, null(), kAbove32Bits, signs, 1, handle, handle, kArgs));
        rows.push_back(generate(rsa, bits2048, 1, null(), kAbove32Bits, handle, handle, kArgs));
        rows.push_back(
            generate(rsa, attributes({numberAttribute(CKA_MODULUS_BITS, kAbove32Bits + 2048)}), 1,
                     signs, 1, handle, handle, CKR_MECHANISM_INVALID));
        // CKK_EC plus 2^32 is no key type the module knows: the public template is passed
        // over and an RSA-2048 pair is made.
        rows.push_back(generate(rsa, attributes({attribute(CKA_EC_PARAMS, input(10), 10)}), 1,
                                attributes({numberAttribute(CKA_KEY_TYPE, kAbove32Bits + CKK_EC)}),
                                1, ulongOut(0), ulongOut(0), kOk));
    }
    append(rows,
           sweep({entry, kUser, {swept(), rsa, bits2048, num(1), signs, num(1), handle, handle}, 0},
                 badSessions(), kSessionInvalid));
    return rows;
}

std::vector<Row> deriveRows() {
    const char* entry = "C_DeriveKey";
    const CK_ULONG parametersSize = sizeof(CK_ECDH1_DERIVE_PARAMS);
    const Arg parameters = ecdhParameters(CKD_NULL, ecPoint(), 65);
    const Arg ecdh = mechanism(CKM_ECDH1_DERIVE, parameters, parametersSize);
    const Arg handle = ulongOut(0);
    const auto derive = [&](Arg mechanismArg, CK_OBJECT_HANDLE base, Arg keyTemplate,
                            CK_ULONG count, Arg keyHandle, CK_RV expected) {
        return Row{entry,
                   kUser,
                   {session(), std::move(mechanismArg), num(base), std::move(keyTemplate),
                    num(count), std::move(keyHandle)},
                   expected};
    };
    const auto withParameters = [&](Arg parameterArg, CK_ULONG length, CK_RV expected) {
        return derive(mechanism(CKM_ECDH1_DERIVE, std::move(parameterArg), length), kEcPrivate,
                      null(), 0, ulongOut(0), expected);
    };
    const CK_RV kParam = CKR_MECHANISM_PARAM_INVALID;
    std::vector<Row> rows = {
        derive(null(), kEcPrivate, null(), 0, handle, kArgs),
        derive(ecdh, kEcPrivate, null(), 0, null(), kArgs),
        // Parameters shorter than the structure are refused before they are read.
        withParameters(null(), 0, kParam),
        withParameters(null(), parametersSize, kParam),
        withParameters(noAccess(), 0, kParam),
        withParameters(noAccess(), parametersSize - 1, kParam),
        withParameters(input(1), 1, kParam),
        // A longer length: only the structure is read.
        withParameters(parameters, 0xFFFFFFFF, kOk),
        withParameters(ecdhParameters(CKD_NULL, null(), 65), parametersSize, kParam),
        withParameters(ecdhParameters(CKD_NULL, ecPoint(), 0), parametersSize, kParam),
        // An unknown kdf keeps the raw secret; shared data is never read.
        withParameters(ecdhParameters(0xFFFFFFFF, ecPoint(), 65), parametersSize, kOk),
        withParameters(ecdhParameters(CKD_NULL, ecPoint(), 65, noAccess(), 0xFFFFFFFF),
                       parametersSize, kOk),
        // A point the device does not take.
        withParameters(ecdhParameters(CKD_NULL, input(16), 16), parametersSize,
                       CKR_FUNCTION_FAILED),
        // A huge count without a template is not read; CKA_VALUE_LEN without a value, one byte
        // long or larger than the secret leaves the secret whole.
        derive(ecdh, kEcPrivate, null(), 0xFFFFFFFF, ulongOut(0), kOk),
        // Attributes other than CKA_VALUE_LEN are never read.
        derive(ecdh, kEcPrivate,
               attributes({attribute(CKA_LABEL, noAccess(), 5), attribute(CKA_TOKEN, noAccess(), 1),
                           attribute(0xFFFFFFFF, noAccess(), 8)}),
               3, ulongOut(0), kOk),
        derive(ecdh, kEcPrivate, attributes({attribute(CKA_VALUE_LEN, null(), 8)}), 1, ulongOut(0),
               kOk),
        derive(ecdh, kEcPrivate, attributes({attribute(CKA_VALUE_LEN, input(1), 1)}), 1,
               ulongOut(0), kOk),
        derive(ecdh, kEcPrivate, attributes({numberAttribute(CKA_VALUE_LEN, 0xFFFFFFFF)}), 1,
               ulongOut(0), kOk),
    };
    for (CK_MECHANISM_TYPE type : badMechanisms(CKM_ECDH1_DERIVE)) {
        rows.push_back(derive(mechanism(type, parameters, parametersSize), kEcPrivate, null(), 0,
                              handle, CKR_MECHANISM_INVALID));
    }
    for (CK_ULONG length : tooLong(65)) {
        rows.push_back(
            withParameters(ecdhParameters(CKD_NULL, noAccess(), length), parametersSize, kParam));
    }
    if (kWide) {
        rows.push_back(withParameters(parameters, kAbove32Bits, kOk));
        rows.push_back(derive(ecdh, kEcPrivate, null(), kAbove32Bits, ulongOut(0), kOk));
    }
    // Base keys are private keys only; key pair 0xFFF is an RSA pair, which the device refuses.
    append(rows,
           objectSweep({entry, kUser, {session(), ecdh, swept(), null(), num(0), ulongOut(0)}, 0},
                       {kKey, kKey, kOk, kKey, CKR_FUNCTION_FAILED, kKey, kKey, kKey, kKey, kKey,
                        kKey, kKey, kKey},
                       kKey));
    append(rows, sweep({entry, kUser, {swept(), ecdh, num(kEcPrivate), null(), num(0), handle}, 0},
                       badSessions(), kSessionInvalid));
    return rows;
}

std::vector<Row> randomRows() {
    std::vector<Row> rows = {
        {"C_GenerateRandom", kSession, {session(), null(), num(16)}, kArgs},
        {"C_GenerateRandom", kSession, {session(), null(), num(0xFFFFFFFF)}, kArgs},
        {"C_GenerateRandom", kSession, {session(), output(16, 0), num(0)}, kArgs},
        // One byte asked for, one byte written.
        {"C_GenerateRandom", kSession, {session(), output(16, 1), num(1)}, kOk},
    };
    if (kWide) {
        rows.push_back(
            {"C_GenerateRandom", kSession, {session(), null(), num(kAbove32Bits)}, kArgs});
    }
    append(rows, sweep({"C_GenerateRandom", kSession, {swept(), output(16, 0), num(16)}, 0},
                       badSessions(), kSessionInvalid));
    return rows;
}

// Every mechanism of the catalogue, and two it does not hold, given to every Init: each takes
// only its own (the FIPS 140-3 token refuses SHA-1 signing); key-pair generation never looks
// at the type (compatibility register, entry 35).
std::vector<Row> mechanismCrossRows() {
    const std::vector<CK_MECHANISM_TYPE> every = {CKM_RSA_PKCS_KEY_PAIR_GEN,
                                                  CKM_RSA_PKCS,
                                                  CKM_RSA_PKCS_OAEP,
                                                  CKM_RSA_PKCS_PSS,
                                                  CKM_SHA1_RSA_PKCS,
                                                  CKM_SHA224_RSA_PKCS,
                                                  CKM_SHA256_RSA_PKCS,
                                                  CKM_SHA384_RSA_PKCS,
                                                  CKM_SHA512_RSA_PKCS,
                                                  CKM_SHA1_RSA_PKCS_PSS,
                                                  CKM_SHA224_RSA_PKCS_PSS,
                                                  CKM_SHA256_RSA_PKCS_PSS,
                                                  CKM_SHA384_RSA_PKCS_PSS,
                                                  CKM_SHA512_RSA_PKCS_PSS,
                                                  CKM_EC_KEY_PAIR_GEN,
                                                  CKM_ECDH1_DERIVE,
                                                  CKM_ECDSA,
                                                  CKM_ECDSA_SHA1,
                                                  CKM_ECDSA_SHA224,
                                                  CKM_ECDSA_SHA256,
                                                  CKM_ECDSA_SHA384,
                                                  CKM_SHA_1,
                                                  CKM_SHA224,
                                                  CKM_SHA256,
                                                  CKM_SHA384,
                                                  CKM_SHA512,
                                                  CKM_MD5,
                                                  CKM_ECDSA_SHA512};
    const std::vector<CK_MECHANISM_TYPE> signing = {CKM_RSA_PKCS,
                                                    CKM_RSA_PKCS_PSS,
                                                    CKM_SHA224_RSA_PKCS,
                                                    CKM_SHA256_RSA_PKCS,
                                                    CKM_SHA384_RSA_PKCS,
                                                    CKM_SHA512_RSA_PKCS,
                                                    CKM_SHA224_RSA_PKCS_PSS,
                                                    CKM_SHA256_RSA_PKCS_PSS,
                                                    CKM_SHA384_RSA_PKCS_PSS,
                                                    CKM_SHA512_RSA_PKCS_PSS,
                                                    CKM_ECDSA,
                                                    CKM_ECDSA_SHA224,
                                                    CKM_ECDSA_SHA256,
                                                    CKM_ECDSA_SHA384};
    std::vector<CK_MECHANISM_TYPE> verifying = signing;
    verifying.insert(verifying.end(), {CKM_SHA1_RSA_PKCS, CKM_SHA1_RSA_PKCS_PSS, CKM_ECDSA_SHA1});
    const std::vector<CK_MECHANISM_TYPE> digesting = {CKM_SHA_1, CKM_SHA224, CKM_SHA256, CKM_SHA384,
                                                      CKM_SHA512};
    const std::vector<CK_MECHANISM_TYPE> ciphers = {CKM_RSA_PKCS, CKM_RSA_PKCS_OAEP};
    const auto takes = [](const std::vector<CK_MECHANISM_TYPE>& accepted, CK_MECHANISM_TYPE type) {
        return std::find(accepted.begin(), accepted.end(), type) != accepted.end()
                   ? kOk
                   : CKR_MECHANISM_INVALID;
    };
    const Arg ecdhParameters65 = ecdhParameters(CKD_NULL, ecPoint(), 65);
    std::vector<Row> rows;
    for (CK_MECHANISM_TYPE type : every) {
        const Arg plain = mechanism(type);
        rows.push_back({"C_DigestInit", kSession, {session(), plain}, takes(digesting, type)});
        rows.push_back(
            {"C_SignInit", kUser, {session(), plain, num(kRsaPrivate)}, takes(signing, type)});
        rows.push_back({"C_VerifyInit",
                        kSession,
                        {session(), plain, num(kRsaPublic)},
                        takes(verifying, type)});
        rows.push_back(
            {"C_EncryptInit", kSession, {session(), plain, num(kRsaPublic)}, takes(ciphers, type)});
        rows.push_back(
            {"C_DecryptInit", kUser, {session(), plain, num(kRsaPrivate)}, takes(ciphers, type)});
        rows.push_back(
            {"C_DeriveKey",
             kUser,
             {session(), mechanism(type, ecdhParameters65, sizeof(CK_ECDH1_DERIVE_PARAMS)),
              num(kEcPrivate), null(), num(0), ulongOut(0)},
             takes({CKM_ECDH1_DERIVE}, type)});
        rows.push_back({"C_GenerateKeyPair",
                        kUser,
                        {session(), plain, attributes({numberAttribute(CKA_MODULUS_BITS, 2048)}),
                         num(1), attributes({attribute(CKA_SIGN, input({CK_TRUE}), 1)}), num(1),
                         ulongOut(0), ulongOut(0)},
                        kOk});
    }
    return rows;
}

// Parameters of every length up to a little more than the largest structure a mechanism of the
// module could take, in memory of exactly that length: what takes no parameters refuses them
// unread, what ignores them (digests, PSS, OAEP, verification) accepts them unread, and ECDH
// reads its structure only when the length holds it.
std::vector<Row> parameterLengthRows() {
    const std::size_t ecdhSize = sizeof(CK_ECDH1_DERIVE_PARAMS);
    const Arg ecdhParameters65 = ecdhParameters(CKD_NULL, ecPoint(), 65);
    const CK_RV kParam = CKR_MECHANISM_PARAM_INVALID;
    std::vector<Row> rows;
    for (std::size_t size = 0; size <= ecdhSize + sizeof(CK_ULONG); ++size) {
        const Arg bytes = input(size);
        const CK_ULONG length = size;
        const auto with = [&](CK_MECHANISM_TYPE type) { return mechanism(type, bytes, length); };
        rows.push_back({"C_DigestInit", kSession, {session(), with(CKM_SHA256)}, kOk});
        rows.push_back(
            {"C_SignInit", kUser, {session(), with(CKM_RSA_PKCS), num(kRsaPrivate)}, kParam});
        rows.push_back({"C_SignInit",
                        kUser,
                        {session(), with(CKM_SHA256_RSA_PKCS_PSS), num(kRsaPrivate)},
                        kOk});
        rows.push_back(
            {"C_VerifyInit", kSession, {session(), with(CKM_RSA_PKCS), num(kRsaPublic)}, kOk});
        rows.push_back(
            {"C_EncryptInit", kSession, {session(), with(CKM_RSA_PKCS), num(kRsaPublic)}, kParam});
        rows.push_back({"C_EncryptInit",
                        kSession,
                        {session(), with(CKM_RSA_PKCS_OAEP), num(kRsaPublic)},
                        kOk});
        rows.push_back(
            {"C_DecryptInit", kUser, {session(), with(CKM_RSA_PKCS), num(kRsaPrivate)}, kParam});
        rows.push_back(
            {"C_DecryptInit", kUser, {session(), with(CKM_RSA_PKCS_OAEP), num(kRsaPrivate)}, kOk});
        rows.push_back({"C_GenerateKeyPair",
                        kUser,
                        {session(), with(CKM_RSA_PKCS_KEY_PAIR_GEN),
                         attributes({numberAttribute(CKA_MODULUS_BITS, 2048)}), num(1),
                         attributes({attribute(CKA_SIGN, input({CK_TRUE}), 1)}), num(1),
                         ulongOut(0), ulongOut(0)},
                        kParam});
        const bool holdsStructure = size >= ecdhSize;
        rows.push_back(
            {"C_DeriveKey",
             kUser,
             {session(),
              mechanism(CKM_ECDH1_DERIVE,
                        holdsStructure ? extendedTo(ecdhParameters65, size) : bytes, length),
              num(kEcPrivate), null(), num(0), ulongOut(0)},
             holdsStructure ? kOk : kParam});
    }
    return rows;
}

}  // namespace

std::vector<Row> cryptoRows() {
    std::vector<Row> rows = digestRows();
    append(rows, signRows());
    append(rows, verifyRows());
    append(rows, cipherRows());
    append(rows, keyPairRows());
    append(rows, deriveRows());
    append(rows, randomRows());
    append(rows, mechanismCrossRows());
    append(rows, parameterLengthRows());
    return rows;
}

}  // namespace matrix
