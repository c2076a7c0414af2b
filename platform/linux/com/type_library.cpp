#include "platform/linux/com/type_library.h"

#include <oleauto.h>
#include <unistd.h>
#include <windows.h>

#include <cwchar>
#include <string>

#include "platform/linux/automation/program_resources.h"
#include "platform/linux/com/type_registry.h"
#include "platform/linux/kernel/paths.h"
#include "platform/linux/kernel/text.h"
#include "platform/linux/services/dbus_registration.h"

namespace linux_host {
namespace {

using interface_schema::Interface;
using interface_schema::Library;

class TypeLibrary final : public CountedDescription<ITypeLib, IID_ITypeLib> {
 public:
  explicit TypeLibrary(const Library& description) : description_(description) {
    attributes_.guid = *description.id;
    attributes_.lcid = description.locale;
    attributes_.syskind = SYS_WIN64;
    attributes_.wMajorVerNum = description.major_version;
    attributes_.wMinorVerNum = description.minor_version;
  }

  const Library& description() const { return description_; }

  HRESULT STDMETHODCALLTYPE GetTypeInfoOfGuid(REFGUID id, ITypeInfo** info) override {
    if (!info) return E_INVALIDARG;
    *info = nullptr;
    for (const Interface* candidate : description_.interfaces) {
      if (!IsEqualGUID(*candidate->id, id)) continue;
      *info = MakeTypeInfo(*candidate);
      return S_OK;
    }
    return TYPE_E_ELEMENTNOTFOUND;
  }

  HRESULT STDMETHODCALLTYPE GetLibAttr(TLIBATTR** attributes) override {
    if (!attributes) return E_INVALIDARG;
    *attributes = &attributes_;
    return S_OK;
  }
  void STDMETHODCALLTYPE ReleaseTLibAttr(TLIBATTR*) override {}

 private:
  const Library& description_;
  TLIBATTR attributes_{};
};

// The description behind a library made here.
const Library& DescriptionOf(ITypeLib* library) {
  return static_cast<TypeLibrary*>(library)->description();
}

bool FileExists(const std::wstring& path) { return access(WideToUtf8(path).c_str(), F_OK) == 0; }

}  // namespace

ITypeLib* MakeTypeLibrary(const Library& description) { return new TypeLibrary(description); }

}  // namespace linux_host

HRESULT LoadTypeLib(const OLECHAR* path, ITypeLib** library) {
  if (!path || !library) return E_INVALIDARG;
  *library = nullptr;
  const interface_schema::Library* carried = linux_host::GetProgramResources().type_library;
  if (!carried || linux_host::Utf8ToWide(linux_host::ExecutablePath()) != path)
    return TYPE_E_CANTLOADLIBRARY;
  *library = linux_host::MakeTypeLibrary(*carried);
  return S_OK;
}

HRESULT LoadRegTypeLib(REFGUID id, WORD major, WORD minor, LCID, ITypeLib** library) {
  if (!library) return E_INVALIDARG;
  *library = nullptr;
  std::wstring path;
  if (!linux_host::FindRegisteredLibrary(id, major, minor, path)) return TYPE_E_LIBNOTREGISTERED;
  const interface_schema::Library* carried = linux_host::GetProgramResources().type_library;
  if (!carried || !IsEqualGUID(*carried->id, id) || carried->major_version != major ||
      carried->minor_version != minor || !linux_host::FileExists(path)) {
    return TYPE_E_CANTLOADLIBRARY;
  }
  *library = linux_host::MakeTypeLibrary(*carried);
  return S_OK;
}

HRESULT RegisterTypeLib(ITypeLib* library, const OLECHAR* path, const OLECHAR* help_directory) {
  if (!library || !path) return E_INVALIDARG;
  const interface_schema::Library& description = linux_host::DescriptionOf(library);
  return linux_host::WriteLibraryEntries(description, path, help_directory) &&
                 linux_host::WriteDBusRegistration(description)
             ? S_OK
             : TYPE_E_REGISTRYACCESS;
}

HRESULT UnRegisterTypeLib(REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND kind) {
  if (kind != SYS_WIN64) return TYPE_E_REGISTRYACCESS;
  const interface_schema::Library* carried = linux_host::GetProgramResources().type_library;
  const bool is_carried = carried && IsEqualGUID(*carried->id, id);
  // In any case: a bus must not start a server that is no longer registered.
  const bool are_files_gone = !is_carried || linux_host::RemoveDBusRegistration(*carried);
  return linux_host::RemoveLibraryEntries(id, major, minor, locale,
                                          is_carried ? carried : nullptr) &&
                 are_files_gone
             ? S_OK
             : TYPE_E_REGISTRYACCESS;
}
