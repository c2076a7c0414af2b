// Statuses of the component library for what the system's own calls report.
#pragma once

#include <windows.h>

// The status of a system error code; 0 is success and stays 0.
inline HRESULT StatusOf(LONG error) { return HRESULT_FROM_WIN32(static_cast<DWORD>(error)); }
