#include "api/tz_wirefox_object.h"

#include <new>

#include "api/devices_changed_location.h"
#include "api/interface_table.h"
#include "api/method_frame.h"
#include "config/activity_file.h"

HRESULT CTzWirefox::Create(api::ModuleLock& module, IUnknown* outer, REFIID riid, void** object) {
  *object = nullptr;
  CTzWirefox* created = nullptr;
  try {
    created = new CTzWirefox(module, outer);
  } catch (const api::OutOfStrings&) {
    return E_OUTOFMEMORY;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  const HRESULT result = outer ? created->inner_.QueryInterface(riid, object)
                               : created->QueryOwnInterface(riid, object);
  created->ReleaseOwnReference();
  return result;
}

CTzWirefox::CTzWirefox(api::ModuleLock& module, IUnknown* outer)
    : module_(module), inner_(*this), outer_(outer) {
  DeviceTableGuard lock;
  api::LogEntry("CTzWirefox::CTzWirefox");
  api::RememberDevicesChangedLocation();
  StartActivityFile(api::DevicesChangedLocation());
  module_.Lock();
}

CTzWirefox::~CTzWirefox() {
  {
    DeviceTableGuard lock;
    api::LogEntry("CTzWirefox::~CTzWirefox");
  }
  if (type_info_) type_info_->Release();
  // Last: the server may end once nothing is counted any more.
  module_.Unlock();
}

HRESULT CTzWirefox::QueryInterface(REFIID riid, void** object) {
  return outer_ ? outer_->QueryInterface(riid, object) : QueryOwnInterface(riid, object);
}

ULONG CTzWirefox::AddRef() { return outer_ ? outer_->AddRef() : ++references_; }

ULONG CTzWirefox::Release() { return outer_ ? outer_->Release() : ReleaseOwnReference(); }

// All interfaces share one table of operations, hence one pointer.
HRESULT CTzWirefox::QueryOwnInterface(REFIID riid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  for (const IID* offered : {&IID_IUnknown, &IID_IDispatch, &api::kInterfaceIdV1,
                             &api::kInterfaceIdV2, &api::kInterfaceIdV3}) {
    if (!IsEqualIID(riid, *offered)) continue;
    *object = static_cast<ITzWirefox_v3*>(this);
    AddRef();
    return S_OK;
  }
  return E_NOINTERFACE;
}

ULONG CTzWirefox::ReleaseOwnReference() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT CTzWirefox::InnerUnknown::QueryInterface(REFIID riid, void** object) {
  if (!object) return E_POINTER;
  if (!IsEqualIID(riid, IID_IUnknown)) return object_.QueryOwnInterface(riid, object);
  *object = static_cast<IUnknown*>(this);
  AddRef();
  return S_OK;
}

ULONG CTzWirefox::InnerUnknown::AddRef() { return ++object_.references_; }

ULONG CTzWirefox::InnerUnknown::Release() { return object_.ReleaseOwnReference(); }

HRESULT CTzWirefox::LoadTypeInfo() {
  if (type_info_) return S_OK;
  ITypeLib* library = nullptr;
  const HRESULT loaded =
      LoadRegTypeLib(api::kLibraryId, api::kLibrary.major_version, api::kLibrary.minor_version,
                     api::kLibrary.locale, &library);
  if (FAILED(loaded)) return loaded;
  const HRESULT found = library->GetTypeInfoOfGuid(api::kInterfaceIdV3, &type_info_);
  library->Release();
  return found;
}

HRESULT CTzWirefox::GetTypeInfoCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = 1;
  return S_OK;
}

HRESULT CTzWirefox::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
  if (!info) return E_POINTER;
  *info = nullptr;
  if (index != 0) return DISP_E_BADINDEX;
  if (const HRESULT loaded = LoadTypeInfo(); FAILED(loaded)) return loaded;
  type_info_->AddRef();
  *info = type_info_;
  return S_OK;
}

HRESULT CTzWirefox::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (!names || !ids) return E_POINTER;
  if (const HRESULT loaded = LoadTypeInfo(); FAILED(loaded)) return loaded;
  return type_info_->GetIDsOfNames(names, count, ids);
}

HRESULT CTzWirefox::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* parameters,
                           VARIANT* result, EXCEPINFO* exception, UINT* argument_error) {
  if (const HRESULT loaded = LoadTypeInfo(); FAILED(loaded)) return loaded;
  return type_info_->Invoke(static_cast<ITzWirefox_v3*>(this), id, flags, parameters, result,
                            exception, argument_error);
}
