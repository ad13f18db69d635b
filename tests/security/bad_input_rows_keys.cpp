// Rows of the matrix for making keys and random numbers: key-pair generation, derivation and
// C_GenerateRandom. Object handle sweeps list their codes in the order of objectHandles()
// (bad_input_rows_objects.cpp).
#include <utility>

#include "bad_input_matrix.h"

namespace matrix {

namespace {

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

}  // namespace

std::vector<Row> keyRows() {
    std::vector<Row> rows = keyPairRows();
    append(rows, deriveRows());
    append(rows, randomRows());
    return rows;
}

}  // namespace matrix
