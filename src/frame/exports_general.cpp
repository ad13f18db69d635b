// General-purpose entry points: start, stop, library information, function list.
#include "frame/export_frame.h"
#include "frame/function_list.h"
#include "frame/library_info.h"
#include "frame/module_lifecycle.h"

// pInitArgs is never read: the module makes its own threads and locks whatever the caller asks.
CK_RV C_Initialize(CK_VOID_PTR /*pInitArgs*/) {
    return runLifecycleExport("C_Initialize",
                              [](ExportCall& call) { return initializeModule(call); });
}

CK_RV C_Finalize(CK_VOID_PTR /*pReserved*/) {
    return runLifecycleExport("C_Finalize", [](ExportCall& call) { return finalizeModule(call); });
}

CK_RV C_GetInfo(CK_INFO* pInfo) {
    return runExport("C_GetInfo", [&](ExportCall& call) { return getLibraryInfo(call, pInfo); });
}

// Works before C_Initialize: it is how a caller finds C_Initialize in the first place.
CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) {
    try {
        logInfo("C_GetFunctionList");
        if (ppFunctionList == nullptr) {
            logError("C_GetFunctionList: ppFunctionList is NULL");
            return CKR_ARGUMENTS_BAD;
        }
        *ppFunctionList = moduleFunctionList();
        return CKR_OK;
    } catch (...) {
        return answerForCurrentException("C_GetFunctionList");
    }
}
