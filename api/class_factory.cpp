#include "api/class_factory.h"

#include <new>

#include "api/tz_wirefox_object.h"

namespace api {

TzWirefoxFactory* TzWirefoxFactory::Create(ModuleLock& module) {
  return new (std::nothrow) TzWirefoxFactory(module);
}

HRESULT TzWirefoxFactory::QueryInterface(REFIID riid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory)) {
    return E_NOINTERFACE;
  }
  *object = static_cast<IClassFactory*>(this);
  AddRef();
  return S_OK;
}

ULONG TzWirefoxFactory::AddRef() { return ++references_; }

ULONG TzWirefoxFactory::Release() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT TzWirefoxFactory::CreateInstance(IUnknown* outer, REFIID riid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  // An aggregating object can only start from the inner IUnknown.
  if (outer && !IsEqualIID(riid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
  return CTzWirefox::Create(module_, outer, riid, object);
}

HRESULT TzWirefoxFactory::LockServer(BOOL lock) {
  if (lock != FALSE) {
    module_.Lock();
  } else {
    module_.Unlock();
  }
  return S_OK;
}

}  // namespace api
