// Calls on objects: search, attributes, creation, destruction, key-pair generation and key
// derivation, with fuzzed templates. Handles they answer join the pool for later calls.
#include "module_calls.h"

namespace modulefuzz {

namespace {

CK_OBJECT_HANDLE_PTR handleOutOrNull(CallInput& in, CallState& state) {
    return in.byte() % 8 == 7 ? nullptr : state.holdValue<CK_OBJECT_HANDLE>(0);
}

void rememberObject(CallState& state, CK_RV rv, const CK_OBJECT_HANDLE* handle) {
    if (rv == CKR_OK && handle != nullptr) {
        CallState::remember(state.objects, *handle);
    }
}

}  // namespace

void callFindObjectsInit(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    // Mostly a class first, as clients search; CKA_LABEL alone decides when given.
    static const std::vector<CK_ATTRIBUTE_TYPE> kClassFirst = {CKA_CLASS};
    const std::uint8_t shape = in.byte();
    const TemplateArgument found =
        inputTemplate(in, state, shape % 2 == 0 ? kClassFirst : std::vector<CK_ATTRIBUTE_TYPE>{});
    C_FindObjectsInit(session, found.pointer, found.count);
}

void callFindObjects(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const ListArea<CK_ULONG> area = listArea(in, state, 64);
    CK_ULONG maximum = area.count != nullptr ? *area.count : in.byte();
    if (area.count == nullptr && area.pointer != nullptr) {
        maximum %= 65;  // the area holds 64 handles
    }
    CK_ULONG_PTR count = in.byte() % 8 == 7 ? nullptr : state.holdValue<CK_ULONG>(0);
    if (C_FindObjects(session, area.pointer, maximum, count) == CKR_OK && area.pointer != nullptr &&
        count != nullptr && *count <= maximum) {
        for (CK_ULONG i = 0; i < *count; ++i) {
            CallState::remember(state.objects, area.pointer[i]);
        }
    }
}

void callFindObjectsFinal(CallInput& in, CallState& state) {
    C_FindObjectsFinal(sessionArgument(in, state));
}

void callGetAttributeValue(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_OBJECT_HANDLE object = objectArgument(in, state);
    const TemplateArgument read = outputTemplate(in, state);
    C_GetAttributeValue(session, object, read.pointer, read.count);
}

void callSetAttributeValue(CallInput& in, CallState& state) {
    static const std::vector<CK_ATTRIBUTE_TYPE> kLabelFirst = {CKA_LABEL};
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_OBJECT_HANDLE object = objectArgument(in, state);
    const std::uint8_t shape = in.byte();
    const TemplateArgument written =
        inputTemplate(in, state, shape % 2 == 0 ? kLabelFirst : std::vector<CK_ATTRIBUTE_TYPE>{});
    C_SetAttributeValue(session, object, written.pointer, written.count);
}

void callGetObjectSize(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_OBJECT_HANDLE object = objectArgument(in, state);
    C_GetObjectSize(session, object, in.byte() % 8 == 7 ? nullptr : state.holdValue<CK_ULONG>(0));
}

void callCreateObject(CallInput& in, CallState& state) {
    // The two kinds of object the module imports, and anything else.
    static const std::vector<CK_ATTRIBUTE_TYPE> kShapes[] = {
        {CKA_CLASS, CKA_CERTIFICATE_TYPE, CKA_VALUE, CKA_LABEL, CKA_ID},
        {CKA_CLASS, CKA_KEY_TYPE, CKA_MODULUS, CKA_PRIVATE_EXPONENT, CKA_PRIME_1, CKA_ID,
         CKA_LABEL},
        {},
    };
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const TemplateArgument created = inputTemplate(in, state, kShapes[in.pick(3)]);
    const CK_OBJECT_HANDLE_PTR handle = handleOutOrNull(in, state);
    rememberObject(state, C_CreateObject(session, created.pointer, created.count, handle), handle);
}

void callDestroyObject(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    C_DestroyObject(session, objectArgument(in, state));
}

void callGenerateKeyPair(CallInput& in, CallState& state) {
    static const std::vector<CK_ATTRIBUTE_TYPE> kPublic = {CKA_MODULUS_BITS, CKA_EC_PARAMS};
    static const std::vector<CK_ATTRIBUTE_TYPE> kPrivate = {CKA_KEY_TYPE, CKA_ID, CKA_LABEL};
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_MECHANISM_PTR mechanism = mechanismArgument(in, state);
    const std::uint8_t shape = in.byte();
    const TemplateArgument publicTemplate =
        inputTemplate(in, state, (shape & 1) != 0 ? kPublic : std::vector<CK_ATTRIBUTE_TYPE>{});
    const TemplateArgument privateTemplate =
        inputTemplate(in, state, (shape & 2) != 0 ? kPrivate : std::vector<CK_ATTRIBUTE_TYPE>{});
    const CK_OBJECT_HANDLE_PTR publicKey = handleOutOrNull(in, state);
    const CK_OBJECT_HANDLE_PTR privateKey = handleOutOrNull(in, state);
    const CK_RV rv =
        C_GenerateKeyPair(session, mechanism, publicTemplate.pointer, publicTemplate.count,
                          privateTemplate.pointer, privateTemplate.count, publicKey, privateKey);
    rememberObject(state, rv, publicKey);
    rememberObject(state, rv, privateKey);
}

void callDeriveKey(CallInput& in, CallState& state) {
    static const std::vector<CK_ATTRIBUTE_TYPE> kSecret = {CKA_CLASS, CKA_KEY_TYPE, CKA_VALUE_LEN};
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_MECHANISM_PTR mechanism = mechanismArgument(in, state);
    const CK_OBJECT_HANDLE base = objectArgument(in, state);
    const std::uint8_t shape = in.byte();
    const TemplateArgument derived =
        inputTemplate(in, state, (shape & 1) != 0 ? kSecret : std::vector<CK_ATTRIBUTE_TYPE>{});
    const CK_OBJECT_HANDLE_PTR key = handleOutOrNull(in, state);
    rememberObject(state,
                   C_DeriveKey(session, mechanism, base, derived.pointer, derived.count, key), key);
}

}  // namespace modulefuzz
