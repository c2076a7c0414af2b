#include "service/type_library_registration.h"

#include <objbase.h>
#include <oleauto.h>

#include <memory>
#include <string>

#include "service/module_path.h"
#include "service/status.h"

namespace {

struct LibraryReleaser {
  void operator()(ITypeLib* library) const { library->Release(); }
};
using OwnedLibrary = std::unique_ptr<ITypeLib, LibraryReleaser>;

HRESULT LoadFrom(const std::wstring& path, OwnedLibrary& library) {
  ITypeLib* loaded = nullptr;
  const HRESULT result = LoadTypeLib(path.c_str(), &loaded);
  if (SUCCEEDED(result)) library.reset(loaded);
  return result;
}

// `path` becomes that of the file which the library came from.
HRESULT LoadOwnLibrary(std::wstring& path, OwnedLibrary& library) {
  if (const LONG result = GetModulePath(path); result != ERROR_SUCCESS) return StatusOf(result);
  if (SUCCEEDED(LoadFrom(path, library))) return S_OK;
  path = WithExtension(path, L".tlb");
  return LoadFrom(path, library);
}

}  // namespace

HRESULT RegisterOwnTypeLibrary() {
  std::wstring path;
  OwnedLibrary library;
  if (const HRESULT loaded = LoadOwnLibrary(path, library); FAILED(loaded)) return loaded;
  // The call takes its texts by pointers to non-const, but only reads them.
  std::wstring help_directory = DirectoryOf(path);
  return RegisterTypeLib(library.get(), path.data(), help_directory.data());
}

HRESULT UnregisterOwnTypeLibrary() {
  std::wstring path;
  OwnedLibrary library;
  if (const HRESULT loaded = LoadOwnLibrary(path, library); FAILED(loaded)) return loaded;
  TLIBATTR* attributes = nullptr;
  if (const HRESULT got = library->GetLibAttr(&attributes); FAILED(got)) return got;
  const HRESULT result =
      UnRegisterTypeLib(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum,
                        attributes->lcid, attributes->syskind);
  library->ReleaseTLibAttr(attributes);
  return result;
}
