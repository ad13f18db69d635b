#pragma once

#include "frame/export_frame.h"

CK_RV getLibraryInfo(ExportCall& call, CK_INFO* pInfo);
