#include <unistd.h>
#include <windows.h>

namespace {

// Values of the handle table are small; these lie at the other end, as pseudo-handles do.
HANDLE StreamHandle(DWORD stream) {
  return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(static_cast<LONG>(stream)));
}

}  // namespace

HANDLE GetStdHandle(DWORD stream) {
  if (stream != STD_OUTPUT_HANDLE && stream != STD_ERROR_HANDLE) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  return StreamHandle(stream);
}

BOOL GetConsoleMode(HANDLE stream, LPDWORD mode) {
  int descriptor = -1;
  if (stream == StreamHandle(STD_OUTPUT_HANDLE)) descriptor = STDOUT_FILENO;
  if (stream == StreamHandle(STD_ERROR_HANDLE)) descriptor = STDERR_FILENO;
  if (descriptor < 0 || isatty(descriptor) == 0) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  *mode = ENABLE_VIRTUAL_TERMINAL_PROCESSING;
  return TRUE;
}

BOOL SetConsoleMode(HANDLE stream, DWORD mode) {
  DWORD only = 0;
  if (!GetConsoleMode(stream, &only)) return FALSE;
  if (mode == only) return TRUE;
  SetLastError(ERROR_INVALID_PARAMETER);
  return FALSE;
}
