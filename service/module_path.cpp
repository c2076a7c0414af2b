#include "service/module_path.h"

#include <windows.h>

#include <array>

namespace {

constexpr DWORD kPathRoom = 260;
constexpr wchar_t kSeparators[] = L"\\/";

}  // namespace

long GetModulePath(std::wstring& path) {
  std::array<wchar_t, kPathRoom> buffer = {};
  const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), kPathRoom);
  if (length == 0) return static_cast<long>(GetLastError());
  if (length >= kPathRoom) return ERROR_INSUFFICIENT_BUFFER;
  path.assign(buffer.data(), length);
  return ERROR_SUCCESS;
}

std::wstring InQuotes(const std::wstring& text) { return L"\"" + text + L"\""; }

std::wstring DirectoryOf(const std::wstring& path) {
  const std::size_t separator = path.find_last_of(kSeparators);
  return separator == std::wstring::npos ? std::wstring() : path.substr(0, separator);
}

std::wstring WithExtension(const std::wstring& path, const wchar_t* extension) {
  const std::size_t name = path.find_last_of(kSeparators);
  const std::size_t dot = path.rfind(L'.');
  const bool has_extension =
      dot != std::wstring::npos && (name == std::wstring::npos || dot > name);
  return path.substr(0, has_extension ? dot : path.size()) + extension;
}
