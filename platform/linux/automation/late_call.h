// The arguments of one late-bound call on their way to a method: converted, laid out as words, and
// its outputs brought back to the caller's values.
#pragma once

#include <oleauto.h>

#include <array>

#include "base/interface_schema.h"

namespace linux_host {

class LateCall {
 public:
  LateCall(const interface_schema::Method& method, const DISPPARAMS& arguments)
      : method_(method), arguments_(arguments) {}
  ~LateCall();
  LateCall(const LateCall&) = delete;
  LateCall& operator=(const LateCall&) = delete;

  // Finds and converts every argument. On DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW and
  // DISP_E_PARAMNOTFOUND *bad_argument (may be null) is the argument's index in rgvarg.
  HRESULT Prepare(UINT* bad_argument);

  // Calls the method on the object; the status is the method's own.
  HRESULT Call(IUnknown* object) { return method_.call(object, words_.data()); }

  // After a successful call: outputs into the caller's values, the result into *result, which may
  // be null.
  void Deliver(VARIANT* result);

 private:
  // One parameter. An output is received in `value` when the caller gave a place of no fixed type,
  // or none at all; otherwise directly in the caller's place.
  struct Argument {
    VARIANT value{};              // owned: a converted input or a received output
    VARIANT* receiver = nullptr;  // gets `value` after the call
  };

  HRESULT CheckNames(UINT* bad_argument) const;
  VARIANT* Find(std::size_t parameter, UINT& index) const;
  HRESULT PrepareInput(std::size_t parameter, const VARIANT& given);
  HRESULT PrepareOutput(std::size_t parameter, VARIANT& given);
  void ReceiveInValue(std::size_t parameter, VARIANT* receiver);

  const interface_schema::Method& method_;
  const DISPPARAMS& arguments_;
  std::array<Argument, interface_schema::kMaxCallWords> converted_;
  std::array<interface_schema::CallWord, interface_schema::kMaxCallWords> words_{};
};

}  // namespace linux_host
