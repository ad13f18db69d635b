// Rows of the matrix for the object functions: creation, destruction, attributes, search.
//
// Object handle sweeps list one code per handle of objectHandles(), in this order:
//   0, 0x6FFFFFFF, 0x70000000 (pair 0, EC), 0x70000002 (no pair 2), 0x70000FFF (pair 0xFFF),
//   0x70001000, 0x70001FFF (their public halves), 0x70002000 (certificate 0), 0x70002002 (no
//   certificate 2), 0x70002FFF (certificate 0xFFF), 0x70003000 (a derived key), the next derived
//   handle (none yet), 0xFFFFFFFF
// then one code for every handle above 32 bits.
#include <cstddef>

#include "bad_input_matrix.h"

namespace matrix {

namespace {

constexpr std::size_t kUlong = sizeof(CK_ULONG);
constexpr CK_RV kObject = CKR_OBJECT_HANDLE_INVALID;

// Counts of a template that is not there: one, huge, and (where CK_ULONG is wider) 2^32, which
// must not be cut to 0.
std::vector<CK_ULONG> countsWithoutTemplate() {
    std::vector<CK_ULONG> counts = {1, 0x7FFFFFFF, 0xFFFFFFFF};
    if (kWide) {
        counts.push_back(kAbove32Bits);
    }
    return counts;
}

std::vector<Row> createRows() {
    const Arg garbageDer = attributes({attribute(CKA_VALUE, input(16), 16)});
    std::vector<Row> rows = {
        {"C_CreateObject", kUser, {session(), null(), num(0), ulongOut(0)}, CKR_ARGUMENTS_BAD},
        {"C_CreateObject", kUser, {session(), garbageDer, num(0), ulongOut(0)}, CKR_ARGUMENTS_BAD},
        {"C_CreateObject", kUser, {session(), garbageDer, num(1), null()}, CKR_ARGUMENTS_BAD},
        {"C_CreateObject", kUser, {session(), garbageDer, num(1), ulongOut(0)}, CKR_DATA_INVALID},
        // Attributes the import does not use are never read.
        {"C_CreateObject",
         kUser,
         {session(),
          attributes({attribute(CKA_VALUE, input(16), 16),
                      attribute(CKA_PUBLIC_EXPONENT, noAccess(), 3),
                      attribute(CKA_TOKEN, noAccess(), 1), attribute(0xFFFFFFFF, noAccess(), 8)}),
          num(4), ulongOut(0)},
         CKR_DATA_INVALID},
        // Entries without a value are passed over: no certificate is left to import.
        {"C_CreateObject",
         kUser,
         {session(),
          attributes({attribute(CKA_VALUE, null(), 0xFFFFFFFF),
                      attribute(CKA_LABEL, null(), 0xFFFFFFFF), attribute(CKA_ID, input(4), 0)}),
          num(3), ulongOut(0)},
         CKR_FUNCTION_FAILED},
        // A class one byte long counts as absent: a certificate, again without data.
        {"C_CreateObject",
         kUser,
         {session(), attributes({attribute(CKA_CLASS, input(1), 1)}), num(1), ulongOut(0)},
         CKR_FUNCTION_FAILED},
        {"C_CreateObject",
         kUser,
         {session(), attributes({numberAttribute(CKA_CLASS, CKO_DATA)}), num(1), null()},
         CKR_ARGUMENTS_BAD},
        {"C_CreateObject",
         kUser,
         {session(), attributes({numberAttribute(CKA_CLASS, CKO_DATA)}), num(1), ulongOut(0)},
         CKR_FUNCTION_NOT_SUPPORTED},
        {"C_CreateObject",
         kUser,
         {session(), attributes({numberAttribute(CKA_CLASS, 0xFFFFFFFF)}), num(1), ulongOut(0)},
         CKR_FUNCTION_NOT_SUPPORTED},
        // Key components without values are absent.
        {"C_CreateObject",
         kUser,
         {session(),
          attributes({numberAttribute(CKA_CLASS, CKO_PRIVATE_KEY),
                      attribute(CKA_MODULUS, null(), 0xFFFFFFFF),
                      attribute(CKA_PRIVATE_EXPONENT, null(), 0xFFFFFFFF),
                      attribute(CKA_PRIME_1, input(8), 0)}),
          num(4), ulongOut(0)},
         CKR_FUNCTION_FAILED},
    };
    for (CK_ULONG count : countsWithoutTemplate()) {
        rows.push_back({"C_CreateObject",
                        kUser,
                        {session(), null(), num(count), ulongOut(0)},
                        CKR_ARGUMENTS_BAD});
    }
    if (kWide) {
        // A private key's class plus 2^32 is no private key.
        rows.push_back(
            {"C_CreateObject",
             kUser,
             {session(), attributes({numberAttribute(CKA_CLASS, kAbove32Bits + CKO_PRIVATE_KEY)}),
              num(1), ulongOut(0)},
             CKR_FUNCTION_NOT_SUPPORTED});
    }
    append(rows, sweep({"C_CreateObject", kUser, {swept(), garbageDer, num(1), ulongOut(0)}, 0},
                       badSessions(), CKR_SESSION_HANDLE_INVALID));
    return rows;
}

std::vector<Row> destroyAndSizeRows() {
    std::vector<Row> rows = {
        // The size pointer is checked before the handle.
        {"C_GetObjectSize", kSession, {session(), num(kRsaPrivate), null()}, CKR_ARGUMENTS_BAD},
        {"C_GetObjectSize", kSession, {session(), num(0xFFFFFFFF), null()}, CKR_ARGUMENTS_BAD},
    };
    // A public key's handle is refused (a pair goes through its private key); a derived key is
    // looked up as a certificate and stays (compatibility register, entries 22 and 24).
    append(rows, objectSweep({"C_DestroyObject", kUser, {session(), swept()}, 0},
                             {kObject, kObject, kOk, kObject, kOk, kObject, kObject, kOk, kObject,
                              kOk, kObject, kObject, kObject},
                             kObject));
    // Every handle outside the key ranges is taken for a certificate (entry 24).
    append(rows, objectSweep({"C_GetObjectSize", kSession, {session(), swept(), ulongOut(0)}, 0},
                             {kObject, kObject, kOk, kObject, kOk, kOk, kOk, kOk, kObject, kOk,
                              kObject, kObject, kObject},
                             kObject));
    append(rows, sweep({"C_DestroyObject", kUser, {swept(), num(kRsaPrivate)}, 0}, badSessions(),
                       CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_GetObjectSize", kSession, {swept(), num(kRsaPrivate), ulongOut(0)}, 0},
                       badSessions(), CKR_SESSION_HANDLE_INVALID));
    return rows;
}

std::vector<Row> attributeRows() {
    const Arg classValue = output(kUlong, kUlong);
    const Arg classTemplate = attributes({attributeOut(CKA_CLASS, classValue, kUlong)});
    std::vector<Row> rows = {
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate), classTemplate, num(0)},
         CKR_ARGUMENTS_BAD},
        // The template is checked before the handle.
        {"C_GetAttributeValue",
         kSession,
         {session(), num(0xFFFFFFFF), null(), num(1)},
         CKR_ARGUMENTS_BAD},
        // A size query through a null value, whatever length the caller set.
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate), attributes({attributeOut(CKA_CLASS, null(), 0xFFFFFFFF)}),
          num(1)},
         kOk},
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate), attributes({attributeOut(CKA_CLASS, output(kUlong, 0), 0)}),
          num(1)},
         CKR_BUFFER_TOO_SMALL},
        // A length larger than the buffer: only the value's own bytes are written.
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate),
          attributes({attributeOut(CKA_CLASS, output(kUlong, kUlong), 0xFFFFFFFF)}), num(1)},
         kOk},
        // An unknown type reads as one byte CK_FALSE (compatibility register, entry 20).
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate), attributes({attributeOut(0xFFFFFFFF, output(8, 1), 8)}),
          num(1)},
         kOk},
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate), attributes({attributeOut(CKA_MODULUS, output(8, 0), 8)}),
          num(1)},
         CKR_BUFFER_TOO_SMALL},
        // Nothing is written into a value too small for it, nor into a derived key's.
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate), attributes({attributeOut(CKA_MODULUS, noAccess(), 255)}),
          num(1)},
         CKR_BUFFER_TOO_SMALL},
        {"C_GetAttributeValue",
         kSession,
         {session(), num(0x70003000), attributes({attributeOut(CKA_VALUE, noAccess(), 1)}), num(1)},
         CKR_BUFFER_TOO_SMALL},
        // The first entry is filled, the second refused, the third not touched.
        {"C_GetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate),
          attributes({attributeOut(CKA_CLASS, output(kUlong, kUlong), kUlong),
                      attribute(CKA_MODULUS, output(8, 0), 8), attribute(CKA_ID, output(8, 0), 8)}),
          num(3)},
         CKR_BUFFER_TOO_SMALL,
         true},
        {"C_SetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate), attributes({attribute(CKA_LABEL, input(4), 4)}), num(0)},
         CKR_ARGUMENTS_BAD},
        {"C_SetAttributeValue",
         kSession,
         {session(), num(0xFFFFFFFF), null(), num(1)},
         CKR_ARGUMENTS_BAD},
        // A label and an id without values: nothing to store, and nothing read.
        {"C_SetAttributeValue",
         kSession,
         {session(), num(kRsaPrivate),
          attributes(
              {attribute(CKA_LABEL, null(), 0xFFFFFFFF), attribute(CKA_ID, null(), 0xFFFFFFFF)}),
          num(2)},
         kOk},
    };
    for (CK_ULONG count : countsWithoutTemplate()) {
        rows.push_back({"C_GetAttributeValue",
                        kSession,
                        {session(), num(kRsaPrivate), null(), num(count)},
                        CKR_ARGUMENTS_BAD});
        rows.push_back({"C_SetAttributeValue",
                        kSession,
                        {session(), num(kRsaPrivate), null(), num(count)},
                        CKR_ARGUMENTS_BAD});
    }
    if (kWide) {
        // CKA_CLASS plus 2^32 is an unknown type, not the class.
        rows.push_back(
            {"C_GetAttributeValue",
             kSession,
             {session(), num(kRsaPrivate),
              attributes({attributeOut(kAbove32Bits + CKA_CLASS, output(8, 1), 8)}), num(1)},
             kOk});
    }
    // 0x70002000 has no readable attributes (compatibility register, entry 21); a derived key
    // answers CK_UNAVAILABLE_INFORMATION for its class (entry 22).
    append(rows,
           objectSweep(
               {"C_GetAttributeValue", kSession, {session(), swept(), classTemplate, num(1)}, 0},
               {kObject, kObject, kOk, kObject, kOk, kOk, kOk, kObject, kObject, kOk, kOk, kObject,
                kObject},
               kObject));
    // Only keys can be changed; an attribute the module ignores needs no device call.
    append(rows, objectSweep({"C_SetAttributeValue",
                              kSession,
                              {session(), swept(),
                               attributes({attribute(CKA_TOKEN, noAccess(), 1)}), num(1)},
                              0},
                             {kObject, kObject, kOk, kObject, kOk, kOk, kOk, kObject, kObject,
                              kObject, kObject, kObject, kObject},
                             kObject));
    append(rows, sweep({"C_GetAttributeValue",
                        kSession,
                        {swept(), num(kRsaPrivate), classTemplate, num(1)},
                        0},
                       badSessions(), CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_SetAttributeValue",
                        kSession,
                        {swept(), num(kRsaPrivate),
                         attributes({attribute(CKA_TOKEN, noAccess(), 1)}), num(1)},
                        0},
                       badSessions(), CKR_SESSION_HANDLE_INVALID));
    return rows;
}

std::vector<Row> searchRows() {
    const std::size_t handles = 16 * sizeof(CK_OBJECT_HANDLE);
    // A search over everything in a user session: 3 certificates, 3 public and 3 private keys.
    const std::size_t found = 9 * sizeof(CK_OBJECT_HANDLE);
    std::vector<Row> rows = {
        {"C_FindObjectsInit", kSession, {session(), null(), num(0)}, kOk},
        {"C_FindObjectsInit",
         kSession,
         {session(), attributes({attribute(CKA_LABEL, null(), 5)}), num(1)},
         CKR_ATTRIBUTE_VALUE_INVALID},
        {"C_FindObjectsInit",
         kSession,
         {session(), attributes({attribute(CKA_LABEL, null(), 0xFFFFFFFF)}), num(1)},
         CKR_ATTRIBUTE_VALUE_INVALID},
        {"C_FindObjectsInit",
         kSession,
         {session(), attributes({attribute(CKA_ID, input(4), 0)}), num(1)},
         CKR_ATTRIBUTE_VALUE_INVALID},
        // CKA_CLASS must be as wide as CK_ULONG (compatibility register, entry 23); a wrong
        // length is refused without reading the value.
        {"C_FindObjectsInit",
         kSession,
         {session(), attributes({attribute(CKA_CLASS, noAccess(), 1)}), num(1)},
         CKR_ATTRIBUTE_VALUE_INVALID},
        {"C_FindObjectsInit",
         kSession,
         {session(), attributes({attribute(CKA_CLASS, noAccess(), 0xFFFFFFFF)}), num(1)},
         CKR_ATTRIBUTE_VALUE_INVALID},
        {"C_FindObjectsInit",
         kSession,
         {session(),
          attributes(
              {numberAttribute(CKA_CLASS, CKO_CERTIFICATE), attribute(CKA_LABEL, null(), 3)}),
          num(2)},
         CKR_ATTRIBUTE_VALUE_INVALID},
        // An unknown type, and one the search does not use, are passed over unread.
        {"C_FindObjectsInit",
         kSession,
         {session(),
          attributes({attribute(0xFFFFFFFF, noAccess(), 1), attribute(CKA_TOKEN, noAccess(), 1),
                      numberAttribute(CKA_CLASS, CKO_CERTIFICATE)}),
          num(3)},
         kOk},
        {"C_FindObjects",
         Before::Search,
         {session(), null(), num(1), ulongOut(0)},
         CKR_ARGUMENTS_BAD},
        {"C_FindObjects",
         Before::Search,
         {session(), null(), num(0xFFFFFFFF), ulongOut(0)},
         CKR_ARGUMENTS_BAD},
        {"C_FindObjects",
         Before::Search,
         {session(), output(handles, 0), num(16), null()},
         CKR_ARGUMENTS_BAD},
        {"C_FindObjects",
         Before::Search,
         {session(), null(), num(0), ulongOut(0xFFFFFFFF, 0)},
         kOk},
        {"C_FindObjects",
         kSession,
         {session(), output(handles, 0), num(16), ulongOut(0)},
         CKR_OPERATION_NOT_INITIALIZED},
        {"C_FindObjectsFinal", kSession, {session()}, CKR_OPERATION_NOT_INITIALIZED},
    };
    std::vector<CK_ULONG> hugeCounts = {0x7FFFFFFF, 0xFFFFFFFF};
    if (kWide) {
        hugeCounts.push_back(kAbove32Bits);
        rows.push_back(
            {"C_FindObjectsInit",
             kSession,
             {session(), attributes({attribute(CKA_CLASS, noAccess(), kAbove32Bits + kUlong)}),
              num(1)},
             CKR_ATTRIBUTE_VALUE_INVALID});
        // A certificate's class plus 2^32 is the class of no object: nothing is found.
        rows.push_back(
            {"C_FindObjectsInit",
             kSession,
             {session(), attributes({numberAttribute(CKA_CLASS, kAbove32Bits + CKO_CERTIFICATE)}),
              num(1)},
             kOk});
    }
    for (CK_ULONG count : countsWithoutTemplate()) {
        rows.push_back(
            {"C_FindObjectsInit", kSession, {session(), null(), num(count)}, CKR_ARGUMENTS_BAD});
    }
    // Room for more than there is: only the nine handles are written.
    for (CK_ULONG count : hugeCounts) {
        rows.push_back({"C_FindObjects",
                        Before::Search,
                        {session(), output(handles, found), num(count), ulongOut(0, 9)},
                        kOk});
    }
    append(rows, sweep({"C_FindObjectsInit", kSession, {swept(), null(), num(0)}, 0}, badSessions(),
                       CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_FindObjects",
                        Before::Search,
                        {swept(), output(handles, 0), num(16), ulongOut(0)},
                        0},
                       badSessions(), CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_FindObjectsFinal", Before::Search, {swept()}, 0}, badSessions(),
                       CKR_SESSION_HANDLE_INVALID));
    return rows;
}

}  // namespace

std::vector<Row> objectRows() {
    std::vector<Row> rows = createRows();
    append(rows, destroyAndSizeRows());
    append(rows, attributeRows());
    append(rows, searchRows());
    return rows;
}

}  // namespace matrix
