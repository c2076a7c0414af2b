#include "platform/linux/automation/late_call.h"

#include <cstring>

#include "base/typed_call.h"
#include "platform/linux/automation/safearray.h"
#include "platform/linux/automation/variant.h"

namespace linux_host {
namespace {

using interface_schema::CallWord;
using interface_schema::Direction;
using interface_schema::FromWord;
using interface_schema::Parameter;
using interface_schema::ToWord;
using interface_schema::ValueType;

// The type of an automation value of that parameter type. Enumerations are passed as long; a record
// has a type of its own that needs a description this host does not keep.
VARTYPE VariantType(ValueType type) {
  switch (type) {
    case ValueType::kBstr:
      return VT_BSTR;
    case ValueType::kShort:
      return VT_I2;
    case ValueType::kChar:
      return VT_I1;
    case ValueType::kInt64:
      return VT_I8;
    case ValueType::kByteArray:
      return VT_ARRAY | VT_UI1;
    case ValueType::kStringArray:
      return VT_ARRAY | VT_BSTR;
    case ValueType::kRecord:
      return VT_RECORD;
    case ValueType::kLong:
    case ValueType::kProcessId:
    case ValueType::kEnumeration:
      break;
  }
  return VT_I4;
}

bool IsSameType(VARTYPE given, VARTYPE wanted) {
  return given == wanted || (wanted == VT_I4 && given == VT_INT);
}

// A string or array in the value, not copied; by reference or directly.
HRESULT TakePointer(const VARIANT& given, VARTYPE wanted, CallWord& word) {
  const VARTYPE type = given.vt & ~VT_BYREF;
  if (type != wanted) return DISP_E_TYPEMISMATCH;
  if ((given.vt & VT_BYREF) == 0) {
    word = ToWord(given.bstrVal);
  } else {
    if (!given.byref) return DISP_E_TYPEMISMATCH;
    word = ToWord(*given.pbstrVal);
  }
  const bool is_array = (wanted & VT_ARRAY) != 0;
  if (is_array && !IsArrayOf(FromWord<SAFEARRAY*>(word), wanted & VT_TYPEMASK)) {
    return DISP_E_TYPEMISMATCH;
  }
  return S_OK;
}

}  // namespace

LateCall::~LateCall() {
  for (Argument& argument : converted_) VariantClear(&argument.value);
}

// Named arguments come first in rgvarg; each names a parameter by its position.
HRESULT LateCall::CheckNames(UINT* bad_argument) const {
  if (arguments_.cNamedArgs > arguments_.cArgs) return E_INVALIDARG;
  for (UINT i = 0; i < arguments_.cNamedArgs; ++i) {
    const DISPID id = arguments_.rgdispidNamedArgs[i];
    if (id >= 0 && static_cast<std::size_t>(id) < method_.parameters.size()) continue;
    if (bad_argument) *bad_argument = i;
    return DISP_E_PARAMNOTFOUND;
  }
  return S_OK;
}

VARIANT* LateCall::Find(std::size_t parameter, UINT& index) const {
  for (UINT i = 0; i < arguments_.cNamedArgs; ++i) {
    if (arguments_.rgdispidNamedArgs[i] == static_cast<DISPID>(parameter)) {
      index = i;
      return &arguments_.rgvarg[i];
    }
  }
  // The others stand in reverse order behind them. The result takes no place.
  if (parameter >= arguments_.cArgs - arguments_.cNamedArgs) return nullptr;
  index = arguments_.cArgs - 1 - static_cast<UINT>(parameter);
  return &arguments_.rgvarg[index];
}

HRESULT LateCall::Prepare(UINT* bad_argument) {
  HRESULT status = CheckNames(bad_argument);
  if (FAILED(status)) return status;
  UINT used = 0;
  for (std::size_t i = 0; i < method_.parameters.size(); ++i) {
    const Parameter& parameter = method_.parameters[i];
    if (parameter.direction == Direction::kOutRetval) {
      if (parameter.type == ValueType::kRecord) return E_NOTIMPL;
      ReceiveInValue(i, nullptr);
      continue;
    }
    UINT index = 0;
    VARIANT* given = Find(i, index);
    if (!given) return DISP_E_BADPARAMCOUNT;
    status =
        parameter.direction == Direction::kIn ? PrepareInput(i, *given) : PrepareOutput(i, *given);
    if (FAILED(status)) {
      if (bad_argument) *bad_argument = index;
      return status;
    }
    ++used;
  }
  return used == arguments_.cArgs ? S_OK : DISP_E_BADPARAMCOUNT;
}

HRESULT LateCall::PrepareInput(std::size_t parameter, const VARIANT& given) {
  const VARTYPE wanted = VariantType(method_.parameters[parameter].type);
  const VARIANT* followed = FollowVariant(&given);
  if (!followed) return DISP_E_TYPEMISMATCH;
  const bool is_string = wanted == VT_BSTR && (followed->vt & ~VT_BYREF) == VT_BSTR;
  if (is_string || (wanted & VT_ARRAY) != 0) {
    return TakePointer(*followed, wanted, words_[parameter]);
  }
  VARIANT& value = converted_[parameter].value;
  const HRESULT status = VariantChangeType(&value, followed, 0, wanted);
  if (FAILED(status)) return status;
  words_[parameter] = value.ullVal;
  return S_OK;
}

HRESULT LateCall::PrepareOutput(std::size_t parameter, VARIANT& given) {
  const VARTYPE wanted = VariantType(method_.parameters[parameter].type);
  if ((given.vt & VT_BYREF) == 0 || !given.byref) return DISP_E_TYPEMISMATCH;
  // A record cannot be received late-bound: its description would have to travel with it.
  if (wanted == VT_RECORD) return E_NOTIMPL;
  if (given.vt == (VT_BYREF | VT_VARIANT)) {
    ReceiveInValue(parameter, given.pvarVal);
    return S_OK;
  }
  if (!IsSameType(given.vt & ~VT_BYREF, wanted)) return DISP_E_TYPEMISMATCH;
  words_[parameter] = ToWord(given.byref);
  return S_OK;
}

void LateCall::ReceiveInValue(std::size_t parameter, VARIANT* receiver) {
  Argument& argument = converted_[parameter];
  argument.value.vt = VariantType(method_.parameters[parameter].type);
  argument.value.llVal = 0;
  argument.receiver = receiver;
  words_[parameter] = ToWord(&argument.value.llVal);
}

void LateCall::Deliver(VARIANT* result) {
  for (std::size_t i = 0; i < method_.parameters.size(); ++i) {
    Argument& argument = converted_[i];
    VARIANT* receiver = argument.receiver;
    if (method_.parameters[i].direction == Direction::kOutRetval) {
      receiver = result;
      // The caller's result holds nothing yet, by the rules of such calls.
      if (receiver) VariantInit(receiver);
    }
    if (!receiver || FAILED(VariantClear(receiver))) continue;
    *receiver = argument.value;
    argument.value.vt = VT_EMPTY;
  }
}

}  // namespace linux_host
