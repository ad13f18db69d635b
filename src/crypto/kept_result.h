// The output rule of the single-part and final calls (C_Digest, C_DigestFinal, C_Sign,
// C_SignFinal, C_Encrypt, C_Decrypt): the result, once computed, is kept in the session; its
// length is written through the caller's length pointer; a null output pointer asks only for
// that length and leaves the result kept for the next call, which hands it out without
// computing again (and ignores that call's input).
//
// The caller's length is overwritten with the result's length before it is compared with it,
// so these calls never answer CKR_BUFFER_TOO_SMALL and always copy the whole result: the
// caller must size its buffer from a length query or the key size. Deliberate (compatibility
// register, entry 26); the comparison and its message stay for results longer than CK_ULONG
// can count.
#pragma once

#include <cstring>

#include "core/export_call.h"
#include "core/secret_bytes.h"

enum class KeptResult {
    LengthOnly,  // the output pointer was null: the result stays kept, the operation goes on
    HandedOut,   // copied to the caller and no longer kept: the caller ends its operation
    Refused,     // buffer too small (unreachable but for results beyond CK_ULONG's range)
};

struct KeptResultAnswer {
    KeptResult outcome;
    CK_RV rv;
};

inline KeptResultAnswer handOutKeptResult(const ExportCall& call, SecretBytes& kept,
                                          CK_BYTE_PTR output, CK_ULONG_PTR outputLength) {
    *outputLength = static_cast<CK_ULONG>(kept.size());
    if (output == nullptr) {
        return {KeptResult::LengthOnly, CKR_OK};
    }
    const CK_ULONG provided = *outputLength;
    if (provided < kept.size()) {
        return {KeptResult::Refused,
                call.reject(CKR_BUFFER_TOO_SMALL,
                            "buffer too small, provided=" + decimalText(provided) +
                                " required=" + decimalText(kept.size()))};
    }
    if (!kept.empty()) {
        std::memcpy(output, kept.data(), kept.size());
    }
    wipeAndClear(kept);
    return {KeptResult::HandedOut, CKR_OK};
}
