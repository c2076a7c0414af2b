// The Windows calls that this layer offers, under their own names. Only what is called is declared,
// and what is declared is there in full, within the limits that its comment states.
#pragma once

#include <minwindef.h>
#include <winbase.h>
#include <winerror.h>
#include <winreg.h>
#include <winsvc.h>
#include <winuser.h>
// Last: it builds on the types above.
#include <winhost.h>

#include <comstatus.h>
