// C_Initialize and C_Finalize: bringing the device library instance and the monitor up and down.
#pragma once

#include "frame/export_frame.h"

CK_RV initializeModule(ExportCall& call);
CK_RV finalizeModule(ExportCall& call);
