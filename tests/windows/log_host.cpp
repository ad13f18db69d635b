// A stand-in application: loads ostrel-pkcs11.dll from its own folder as applications do and
// asks for the library information before initialising, which the module refuses and logs.
// Exit code 0 when both calls answered as expected.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <cstdio>

#include "cryptoki/cryptoki.h"

int main() {
    HMODULE module = ::LoadLibraryA("ostrel-pkcs11.dll");
    if (module == nullptr) {
        std::printf("cannot load ostrel-pkcs11.dll: error %lu\n", ::GetLastError());
        return 1;
    }
    const auto getFunctionList = reinterpret_cast<decltype(&C_GetFunctionList)>(
        reinterpret_cast<void*>(::GetProcAddress(module, "C_GetFunctionList")));
    CK_FUNCTION_LIST_PTR functions = nullptr;
    if (getFunctionList == nullptr || getFunctionList(&functions) != CKR_OK) {
        std::printf("no function list\n");
        return 2;
    }
    CK_INFO info;
    const CK_RV rv = functions->C_GetInfo(&info);
    ::FreeLibrary(module);
    return rv == CKR_CRYPTOKI_NOT_INITIALIZED ? 0 : 3;
}
