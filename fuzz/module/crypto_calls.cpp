// The cryptographic calls: digests, signatures, verification, encryption, decryption and random
// numbers, single-part and multi-part, with fuzzed mechanisms, keys, data and output rooms.
// Results the module hands out are kept to be fed back in (a signature to verify, a ciphertext
// to decrypt).
#include "module_calls.h"

namespace modulefuzz {

namespace {

// A single-part or final result: the area is large enough for any result, whatever the stated
// room (compatibility register, entry 26).
template <typename Function>
void produce(CallState& state, const ResultArea& area, Function&& call) {
    if (call(area.pointer, area.length) == CKR_OK && area.pointer != nullptr &&
        area.length != nullptr) {
        state.rememberOutput(area.pointer, *area.length);
    }
}

}  // namespace

void callDigestInit(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    C_DigestInit(session, mechanismArgument(in, state));
}

void callDigest(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    produce(state, resultArea(in, state), [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
        return C_Digest(session, data.pointer, data.length, out, length);
    });
}

void callDigestUpdate(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    C_DigestUpdate(session, data.pointer, data.length);
}

void callDigestFinal(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    produce(state, resultArea(in, state), [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
        return C_DigestFinal(session, out, length);
    });
}

void callSignInit(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_MECHANISM_PTR mechanism = mechanismArgument(in, state);
    C_SignInit(session, mechanism, objectArgument(in, state));
}

void callSign(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    produce(state, resultArea(in, state), [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
        return C_Sign(session, data.pointer, data.length, out, length);
    });
}

void callSignUpdate(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    C_SignUpdate(session, data.pointer, data.length);
}

void callSignFinal(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    produce(state, resultArea(in, state), [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
        return C_SignFinal(session, out, length);
    });
}

void callVerifyInit(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_MECHANISM_PTR mechanism = mechanismArgument(in, state);
    C_VerifyInit(session, mechanism, objectArgument(in, state));
}

void callVerify(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    const InputBytes signature = inputBytes(in, state);
    C_Verify(session, data.pointer, data.length, signature.pointer, signature.length);
}

void callVerifyUpdate(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    C_VerifyUpdate(session, data.pointer, data.length);
}

void callVerifyFinal(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes signature = inputBytes(in, state);
    C_VerifyFinal(session, signature.pointer, signature.length);
}

void callEncryptInit(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_MECHANISM_PTR mechanism = mechanismArgument(in, state);
    C_EncryptInit(session, mechanism, objectArgument(in, state));
}

void callEncrypt(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    produce(state, resultArea(in, state), [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
        return C_Encrypt(session, data.pointer, data.length, out, length);
    });
}

void callDecryptInit(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_MECHANISM_PTR mechanism = mechanismArgument(in, state);
    C_DecryptInit(session, mechanism, objectArgument(in, state));
}

void callDecrypt(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes data = inputBytes(in, state);
    produce(state, resultArea(in, state), [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
        return C_Decrypt(session, data.pointer, data.length, out, length);
    });
}

void callRandom(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    // C_GenerateRandom fills exactly the stated length: the area is that large.
    const ResultArea area = boundedArea(in, state, 2048);
    const CK_ULONG length = area.length != nullptr ? *area.length : in.byte();
    const CK_BYTE_PTR pointer = area.pointer;
    if (pointer != nullptr && area.length == nullptr) {
        // No length pointer to size the area by: state nothing beyond the byte just read.
        return;
    }
    if (C_GenerateRandom(session, pointer, length) == CKR_OK && pointer != nullptr) {
        state.rememberOutput(pointer, length);
    }
}

}  // namespace modulefuzz
