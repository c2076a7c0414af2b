// The modes of a console.
#pragma once

#include <windows.h>

// A terminal obeys control sequences, and that cannot be switched off: the one mode here.
#define ENABLE_VIRTUAL_TERMINAL_PROCESSING 0x0004

extern "C" {

// FALSE with error 6 when the stream is no terminal, 87 for any other mode.
BOOL SetConsoleMode(HANDLE stream, DWORD mode);

}  // extern "C"
