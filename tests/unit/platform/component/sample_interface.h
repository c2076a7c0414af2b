// A class with every kind of parameter, in three versions, as a type library describes it and as a
// C++ client sees it.
#pragma once

#include <objbase.h>
#include <oleauto.h>

#include "api/interface_schema.h"

namespace sample {

extern const GUID kLibraryId;
extern const GUID kClassId;
extern const GUID kInterfaceIdV1;
extern const GUID kInterfaceIdV2;
extern const GUID kInterfaceIdV3;

extern const interface_schema::Library kLibrary;

// 17 fields, 22 bytes, one of them padding.
struct Status {
  std::uint8_t first;
  std::uint8_t second;
  std::int16_t third;
  std::uint8_t fourth;
  std::uint8_t fifth;
  std::int16_t sixth;
  std::int16_t seventh;
  std::uint8_t eighth;
  std::int16_t ninth;
  std::uint8_t rest[8];
};
static_assert(sizeof(Status) == 22 && offsetof(Status, ninth) == 12);

enum class Colour : std::int32_t { kRed = 0, kGreen = 272, kBlue = -1 };

struct ISample_v1 : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE Echo(BSTR text, LONG number, SHORT small, CHAR tiny,
                                         LONGLONG wide, Colour colour, BSTR* text_out,
                                         LONG* number_out, SHORT* small_out, CHAR* tiny_out,
                                         LONGLONG* wide_out, Colour* colour_out) = 0;
  virtual HRESULT STDMETHODCALLTYPE EchoBytes(SAFEARRAY* bytes, SAFEARRAY** bytes_out,
                                              LONG* count) = 0;
  virtual HRESULT STDMETHODCALLTYPE EchoStrings(SAFEARRAY* strings, SAFEARRAY** strings_out,
                                                Colour* colour) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStatus(LONG seed, Status* status, Colour* colour) = 0;
  // Returns `status` as its own, after it has made its output.
  virtual HRESULT STDMETHODCALLTYPE Fail(LONG status, BSTR* text) = 0;
  virtual HRESULT STDMETHODCALLTYPE MakeBytes(LONGLONG count, SAFEARRAY** bytes) = 0;
  // Blocks until Gate opens, in the server's process.
  virtual HRESULT STDMETHODCALLTYPE WaitAtGate(LONG* passed) = 0;
  virtual HRESULT STDMETHODCALLTYPE CountObjects(LONG* count) = 0;
};

struct ISample_v2 : ISample_v1 {
  virtual HRESULT STDMETHODCALLTYPE Sum(LONG a, LONG b, LONG* sum) = 0;
};

struct ISample_v3 : ISample_v2 {
  using ISample_v1::Fail;
  virtual HRESULT STDMETHODCALLTYPE Fail(LONGLONG value, LONG* result) = 0;
};

}  // namespace sample
