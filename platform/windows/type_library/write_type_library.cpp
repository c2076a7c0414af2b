// Writes the type library of the service's interface into the file that is named.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "api/interface_table.h"
#include "platform/windows/type_library/library_writer.h"
#include "platform/windows/type_library/size_fields.h"

namespace {

// In which the library keeps its texts: some have a character that others lack or place elsewhere.
constexpr UINT kCodePage = 1252;

int Fail(const char* what, unsigned long number) {
  std::fprintf(stderr, "write_type_library: %s (0x%08lX)\n", what, number);
  return 1;
}

bool MendFile(const std::filesystem::path& path) {
  std::ifstream input(path, std::ios::binary);
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(input)),
                                  std::istreambuf_iterator<char>());
  input.close();
  if (!type_library::MendSizeFields(bytes, api::kLibrary)) return false;
  std::ofstream output(path, std::ios::binary | std::ios::trunc);
  output.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  return bool(output.flush());
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 2) return Fail("name the file", ERROR_INVALID_PARAMETER);
  if (GetACP() != kCodePage) return Fail("needs code page 1252", GetACP());
  // The system's call wants the whole path.
  const std::filesystem::path path = std::filesystem::absolute(argv[1]);
  const HRESULT written = type_library::WriteTypeLibrary(api::kLibrary, path.c_str());
  if (FAILED(written)) return Fail("cannot write the library", static_cast<unsigned long>(written));
  return MendFile(path) ? 0 : Fail("cannot mend the file", GetLastError());
}
