// The system's own registrar, which runs the registry scripts that a program carries.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <filesystem>
#include <string>

#include "platform/windows/com_pointer.h"

namespace system_windows {

// Not declared by the compiler's headers. Only what comes before a method that is called is given
// its true place; the parameters of the others do not matter.
struct IRegistrar : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE AddReplacement(LPCOLESTR key, LPCOLESTR text) = 0;
  virtual HRESULT STDMETHODCALLTYPE ClearReplacements() = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceRegisterSz(LPCOLESTR, LPCOLESTR, LPCOLESTR) = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceUnregisterSz(LPCOLESTR, LPCOLESTR, LPCOLESTR) = 0;
  virtual HRESULT STDMETHODCALLTYPE FileRegister(LPCOLESTR) = 0;
  virtual HRESULT STDMETHODCALLTYPE FileUnregister(LPCOLESTR) = 0;
  virtual HRESULT STDMETHODCALLTYPE StringRegister(LPCOLESTR) = 0;
  virtual HRESULT STDMETHODCALLTYPE StringUnregister(LPCOLESTR) = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceRegister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;
  virtual HRESULT STDMETHODCALLTYPE ResourceUnregister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;
};

// Null when the system has none.
inline windows_host::ComPointer<IRegistrar> CreateRegistrar() {
  windows_host::ComPointer<IRegistrar> registrar;
  const HMODULE library = LoadLibraryW(L"atl100.dll");
  if (!library) return registrar;
  using Creator = HRESULT(WINAPI*)(IRegistrar**);
  const auto create = reinterpret_cast<Creator>(
      reinterpret_cast<void*>(GetProcAddress(library, "AtlCreateRegistrar")));
  if (create) create(registrar.Receive());
  return registrar;
}

}  // namespace system_windows
