#pragma once

#include "cryptoki/cryptoki.h"

// The module's static function list: version 2.20 and the 68 entry points in standard order.
CK_FUNCTION_LIST* moduleFunctionList();
