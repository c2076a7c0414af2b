// The program's type library and its registration.
#pragma once

#include <oaidl.h>

#include <atomic>

#include "base/interface_schema.h"

namespace linux_host {

// Over a description that lives as long as the process. Begins with one reference, the caller's.
ITypeLib* MakeTypeLibrary(const interface_schema::Library& description);

// Describes one interface of it, likewise.
ITypeInfo* MakeTypeInfo(const interface_schema::Interface& description);

// The base of what both are: a counted object with two interfaces.
template <typename Interface, const IID& kId>
class CountedDescription : public Interface {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    const bool answers = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, kId);
    *object = answers ? static_cast<Interface*>(this) : nullptr;
    if (!answers) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 protected:
  virtual ~CountedDescription() = default;

 private:
  std::atomic<ULONG> references_{1};
};

}  // namespace linux_host
