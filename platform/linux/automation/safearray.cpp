#include "platform/linux/automation/safearray.h"

#include <oleauto.h>

#include <cstdlib>
#include <cstring>

namespace linux_host {
namespace {

constexpr ULONG kMaxLocks = 0xFFFF;

TypedArray* HolderOf(SAFEARRAY* array) {
  return reinterpret_cast<TypedArray*>(reinterpret_cast<char*>(array) -
                                       offsetof(TypedArray, array));
}

void FreeElements(SAFEARRAY* array) {
  if (!array->pvData || (array->fFeatures & FADF_STATIC) != 0) return;
  if ((array->fFeatures & FADF_BSTR) != 0) {
    BSTR* strings = static_cast<BSTR*>(array->pvData);
    for (ULONG i = 0; i < array->rgsabound[0].cElements; ++i) SysFreeString(strings[i]);
  }
  std::free(array->pvData);
  array->pvData = nullptr;
}

}  // namespace

thread_local ArrayLimit* ArrayLimit::current_ = nullptr;

ArrayLimit::ArrayLimit(std::size_t bytes) : bytes_(bytes) { current_ = this; }

ArrayLimit::~ArrayLimit() { current_ = nullptr; }

bool ArrayLimit::Allows(std::size_t bytes) {
  if (!current_ || bytes <= current_->bytes_) return true;
  current_->was_exceeded_ = true;
  return false;
}

ULONG ElementSize(VARTYPE type) {
  switch (type) {
    case VT_I1:
    case VT_UI1:
      return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
      return 4;
    case VT_I8:
    case VT_UI8:
    case VT_BSTR:
      return 8;
    default:
      return 0;
  }
}

bool IsArrayOf(SAFEARRAY* array, VARTYPE element_type) {
  if (!array) return true;
  VARTYPE type;
  return array->cDims == 1 && SUCCEEDED(SafeArrayGetVartype(array, &type)) &&
         type == element_type && array->cbElements == ElementSize(element_type) &&
         (array->pvData || array->rgsabound[0].cElements == 0);
}

SAFEARRAY* BorrowBytes(TypedArray& holder, const void* bytes, std::uint32_t count) {
  holder.type = VT_UI1;
  holder.array.cDims = 1;
  holder.array.fFeatures = FADF_AUTO | FADF_STATIC | FADF_FIXEDSIZE | FADF_HAVEVARTYPE;
  holder.array.cbElements = 1;
  holder.array.cLocks = 0;
  holder.array.pvData = const_cast<void*>(bytes);
  holder.array.rgsabound[0] = {count, 0};
  return &holder.array;
}

}  // namespace linux_host

SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds) {
  if (dimensions != 1 || !bounds) return nullptr;
  return SafeArrayCreateVector(type, bounds->lLbound, bounds->cElements);
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lower_bound, ULONG count) {
  const ULONG element_size = linux_host::ElementSize(type);
  if (element_size == 0 || !linux_host::ArrayLimit::Allows(std::size_t{count} * element_size)) {
    return nullptr;
  }
  auto* holder =
      static_cast<linux_host::TypedArray*>(std::calloc(1, sizeof(linux_host::TypedArray)));
  // An empty array has storage too, so that its address can be taken.
  void* data = std::calloc(count == 0 ? 1 : count, element_size);
  if (!holder || !data) {
    std::free(holder);
    std::free(data);
    return nullptr;
  }
  holder->type = type;
  SAFEARRAY& array = holder->array;
  array.cDims = 1;
  array.fFeatures = static_cast<USHORT>(FADF_HAVEVARTYPE | (type == VT_BSTR ? FADF_BSTR : 0));
  array.cbElements = element_size;
  array.pvData = data;
  array.rgsabound[0] = {count, lower_bound};
  return &array;
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) {
  if (!array) return S_OK;
  if (array->cLocks != 0) return DISP_E_ARRAYISLOCKED;
  linux_host::FreeElements(array);
  if ((array->fFeatures & FADF_AUTO) == 0) std::free(linux_host::HolderOf(array));
  return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) {
  if (!array || !data) return E_INVALIDARG;
  const bool is_full = array->cLocks >= linux_host::kMaxLocks;
  *data = is_full ? nullptr : array->pvData;
  if (is_full) return E_UNEXPECTED;
  ++array->cLocks;
  return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array) {
  if (!array) return E_INVALIDARG;
  if (array->cLocks == 0) return E_UNEXPECTED;
  --array->cLocks;
  return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* array) { return array ? array->cDims : 0; }

UINT SafeArrayGetElemsize(SAFEARRAY* array) { return array ? array->cbElements : 0; }

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
  if (!array || !bound) return E_INVALIDARG;
  if (dimension != 1) return DISP_E_BADINDEX;
  *bound = array->rgsabound[0].lLbound;
  return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
  if (!array || !bound) return E_INVALIDARG;
  if (dimension != 1) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND& limits = array->rgsabound[0];
  *bound = static_cast<LONG>(static_cast<ULONG>(limits.lLbound) + limits.cElements - 1);
  return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type) {
  if (!array || !type) return E_INVALIDARG;
  if ((array->fFeatures & FADF_HAVEVARTYPE) == 0) return E_INVALIDARG;
  *type = static_cast<VARTYPE>(linux_host::HolderOf(array)->type);
  return S_OK;
}
