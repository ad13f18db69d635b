#include "frame/function_list.h"

namespace {

#define OSTREL_LIST_ENTRY(name, params) name,
CK_FUNCTION_LIST functionList = {CK_VERSION{2, 20}, OSTREL_CRYPTOKI_FUNCTIONS(OSTREL_LIST_ENTRY)};
#undef OSTREL_LIST_ENTRY

}  // namespace

CK_FUNCTION_LIST* moduleFunctionList() { return &functionList; }
