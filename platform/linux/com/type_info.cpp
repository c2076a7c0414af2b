// Late-bound calls: names to ids, and ids to the operations of an object.

#include <oleauto.h>

#include <cstring>
#include <cwchar>
#include <cwctype>

#include "platform/linux/automation/late_call.h"
#include "platform/linux/com/type_library.h"

namespace linux_host {
namespace {

using interface_schema::Interface;
using interface_schema::Method;

bool IsSameName(const wchar_t* a, const wchar_t* b) {
  for (; *a != L'\0' && std::towlower(*a) == std::towlower(*b); ++a, ++b) {
  }
  return *a == L'\0' && *b == L'\0';
}

// A derived interface's methods come before those of its bases, so that the later of two equal
// names is found.
template <typename Matches>
const Method* FindMethod(const Interface* description, Matches matches) {
  for (; description; description = description->base) {
    for (const Method& method : description->methods) {
      if (matches(method)) return &method;
    }
  }
  return nullptr;
}

void ReportFailure(EXCEPINFO* exception, HRESULT status) {
  if (!exception) return;
  *exception = {};
  exception->scode = status;
}

class TypeInfo final : public CountedDescription<ITypeInfo, IID_ITypeInfo> {
 public:
  explicit TypeInfo(const Interface& description) : description_(description) {}

  HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* names, UINT count, MEMBERID* ids) override;
  HRESULT STDMETHODCALLTYPE Invoke(PVOID instance, MEMBERID id, WORD flags, DISPPARAMS* arguments,
                                   VARIANT* result, EXCEPINFO* exception,
                                   UINT* bad_argument) override;

 private:
  const Interface& description_;
};

HRESULT TypeInfo::GetIDsOfNames(LPOLESTR* names, UINT count, MEMBERID* ids) {
  if (!names || count == 0 || !ids) return E_INVALIDARG;
  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  const Method* method = FindMethod(
      &description_, [&](const Method& candidate) { return IsSameName(candidate.name, names[0]); });
  if (!method) return DISP_E_UNKNOWNNAME;
  ids[0] = method->dispatch_id;
  HRESULT status = S_OK;
  for (UINT i = 1; i < count; ++i) {
    for (std::size_t p = 0; p < method->parameters.size(); ++p) {
      if (IsSameName(method->parameters[p].name, names[i])) ids[i] = static_cast<MEMBERID>(p);
    }
    if (ids[i] == DISPID_UNKNOWN) status = DISP_E_UNKNOWNNAME;
  }
  return status;
}

HRESULT TypeInfo::Invoke(PVOID instance, MEMBERID id, WORD flags, DISPPARAMS* arguments,
                         VARIANT* result, EXCEPINFO* exception, UINT* bad_argument) {
  if (!instance || !arguments) return E_INVALIDARG;
  const Method* method = FindMethod(
      &description_, [&](const Method& candidate) { return candidate.dispatch_id == id; });
  if (!method || (flags & DISPATCH_METHOD) == 0) return DISP_E_MEMBERNOTFOUND;
  LateCall call(*method, *arguments);
  HRESULT status = call.Prepare(bad_argument);
  if (FAILED(status)) return status;
  status = call.Call(static_cast<IUnknown*>(instance));
  if (FAILED(status)) {
    ReportFailure(exception, status);
    return DISP_E_EXCEPTION;
  }
  call.Deliver(result);
  return S_OK;
}

}  // namespace

ITypeInfo* MakeTypeInfo(const Interface& description) { return new TypeInfo(description); }

}  // namespace linux_host
