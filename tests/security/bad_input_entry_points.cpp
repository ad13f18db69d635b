// The entry points of the bad-input matrix: each exported function of the module with the kinds
// of its parameters and a way to call it with the runner's values, the ones the module does not
// offer, and every row of the matrix.
#include <cstddef>
#include <cstring>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "bad_input_matrix.h"
#include "cryptoki/cryptoki.h"

namespace matrix {

namespace {

template <typename Parameter>
Parameter as(const CallValue& value) {
    if constexpr (std::is_pointer_v<Parameter>) {
        // Also the notification callback, a function pointer: copied, never called here.
        Parameter pointer = nullptr;
        static_assert(sizeof pointer == sizeof value.pointer, "pointers of one size");
        std::memcpy(&pointer, &value.pointer, sizeof pointer);
        return pointer;
    } else {
        return static_cast<Parameter>(value.number);
    }
}

template <typename... Parameters, std::size_t... Index>
CK_RV invoke(CK_RV (*function)(Parameters...), const std::vector<CallValue>& values,
             std::index_sequence<Index...>) {
    return function(as<Parameters>(values[Index])...);
}

template <typename... Parameters>
EntryPoint entryPoint(const char* name, CK_RV (*function)(Parameters...)) {
    return {
        name, {std::is_pointer_v<Parameters>...}, [function](const std::vector<CallValue>& values) {
            return invoke(function, values, std::index_sequence_for<Parameters...>{});
        }};
}

}  // namespace

// The 68 standard entry points and the maker's three.
const std::vector<EntryPoint>& entryPoints() {
    static const std::vector<EntryPoint> entries = {
#define MATRIX_ENTRY_POINT(name, parameters) entryPoint(#name, &name),
        OSTREL_CRYPTOKI_FUNCTIONS(MATRIX_ENTRY_POINT)
#undef MATRIX_ENTRY_POINT
            entryPoint("C_EjectToken", &C_EjectToken),
        entryPoint("C_GetUnmanagedStructSizeList", &C_GetUnmanagedStructSizeList),
        entryPoint("C_InteractiveLogin", &C_InteractiveLogin),
    };
    return entries;
}

const EntryPoint* findEntryPoint(const std::string& name) {
    for (const EntryPoint& entry : entryPoints()) {
        if (entry.name == name) {
            return &entry;
        }
    }
    return nullptr;
}

// The entry points the module does not offer: they answer CKR_FUNCTION_NOT_SUPPORTED before and
// after initialisation and touch no argument.
bool isUnsupported(const std::string& name) {
    static const std::set<std::string> names = {
        "C_InitToken",           "C_InitPIN",
        "C_GetOperationState",   "C_SetOperationState",
        "C_CopyObject",          "C_EncryptUpdate",
        "C_EncryptFinal",        "C_DecryptUpdate",
        "C_DecryptFinal",        "C_DigestKey",
        "C_SignRecoverInit",     "C_SignRecover",
        "C_VerifyRecoverInit",   "C_VerifyRecover",
        "C_DigestEncryptUpdate", "C_DecryptDigestUpdate",
        "C_SignEncryptUpdate",   "C_DecryptVerifyUpdate",
        "C_GenerateKey",         "C_WrapKey",
        "C_UnwrapKey",           "C_SeedRandom",
        "C_GetFunctionStatus",   "C_CancelFunction",
        "C_EjectToken",          "C_GetUnmanagedStructSizeList",
        "C_InteractiveLogin"};
    return names.count(name) != 0;
}

namespace {

// An unsupported entry point's rows come from its signature: every argument null or zero, and
// every pointer into a page that may not be touched with every number 0xFFFFFFFF.
std::vector<Row> unsupportedRows() {
    std::vector<Row> rows;
    for (const EntryPoint& entry : entryPoints()) {
        if (!isUnsupported(entry.name)) {
            continue;
        }
        Row zero{entry.name, Before::Session, {}, CKR_FUNCTION_NOT_SUPPORTED};
        Row garbage = zero;
        for (bool pointer : entry.pointerParameters) {
            zero.args.push_back(pointer ? null() : num(0));
            garbage.args.push_back(pointer ? noAccess() : num(0xFFFFFFFF));
        }
        rows.push_back(std::move(zero));
        rows.push_back(std::move(garbage));
    }
    return rows;
}

}  // namespace

std::vector<Row> allRows() {
    std::vector<Row> rows;
    for (const auto& chapter : {generalRows(), unsupportedRows(), slotRows(), sessionRows(),
                                objectRows(), cryptoRows()}) {
        rows.insert(rows.end(), chapter.begin(), chapter.end());
    }
    return rows;
}

}  // namespace matrix
