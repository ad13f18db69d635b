#include "frame/library_info.h"

#include <cstring>

namespace {

// The text and its NUL only: the rest of the field keeps what the caller's buffer held. The
// field is deliberately not blank-padded (compatibility register, entry 1).
template <std::size_t FieldSize>
void writeTerminatedText(CK_UTF8CHAR (&field)[FieldSize], const char* text) {
    static_assert(FieldSize > 0, "field");
    std::size_t length = std::strlen(text);
    if (length >= FieldSize) {
        length = FieldSize - 1;
    }
    std::memcpy(field, text, length);
    field[length] = '\0';
}

}  // namespace

CK_RV getLibraryInfo(ExportCall& call, CK_INFO* pInfo) {
    if (CK_RV rv = call.requireNonNull(pInfo, "pInfo"); rv != CKR_OK) {
        return rv;
    }
    pInfo->cryptokiVersion = CK_VERSION{2, 20};
    writeTerminatedText(pInfo->manufacturerID, "Kelvanetics");
    pInfo->flags = 0;
    writeTerminatedText(pInfo->libraryDescription, "Ostrel PKCS11 Library");
    pInfo->libraryVersion = CK_VERSION{3, 6};
    return CKR_OK;
}
