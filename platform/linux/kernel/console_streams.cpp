#include <unistd.h>
#include <wincon.h>
#include <windows.h>

namespace {

// Values of the handle table are small; these lie at the other end, as pseudo-handles do.
HANDLE StreamHandle(DWORD stream) {
  return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(static_cast<LONG>(stream)));
}

// With error 6 when it is not.
bool IsTerminal(HANDLE stream) {
  int descriptor = -1;
  if (stream == StreamHandle(STD_OUTPUT_HANDLE)) descriptor = STDOUT_FILENO;
  if (stream == StreamHandle(STD_ERROR_HANDLE)) descriptor = STDERR_FILENO;
  if (descriptor >= 0 && isatty(descriptor) != 0) return true;
  SetLastError(ERROR_INVALID_HANDLE);
  return false;
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
  if (!IsTerminal(stream)) return FALSE;
  *mode = ENABLE_VIRTUAL_TERMINAL_PROCESSING;
  return TRUE;
}

BOOL SetConsoleMode(HANDLE stream, DWORD mode) {
  if (!IsTerminal(stream)) return FALSE;
  if (mode == ENABLE_VIRTUAL_TERMINAL_PROCESSING) return TRUE;
  SetLastError(ERROR_INVALID_PARAMETER);
  return FALSE;
}
