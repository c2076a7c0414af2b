// A class with every kind of parameter, in three versions: as a type library describes it, as a C++
// client sees it, and the server's side with its objects and the loop that serves them.
#pragma once

#include <objbase.h>
#include <oleauto.h>

#include <atomic>
#include <functional>

#include "base/interface_schema.h"

namespace sample {

extern const GUID kLibraryId;
extern const GUID kClassId;
extern const GUID kInterfaceIdV1;
extern const GUID kInterfaceIdV2;
extern const GUID kInterfaceIdV3;

extern const interface_schema::Library kLibrary;

// The second byte is padding.
struct Status {
  std::uint8_t first;
  std::int16_t second;
  std::uint8_t third;
  std::uint8_t fourth;
};
static_assert(sizeof(Status) == 6 && offsetof(Status, second) == 2);

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
  virtual HRESULT STDMETHODCALLTYPE CountObjects(LONG* count) = 0;
};

struct ISample_v2 : ISample_v1 {
  virtual HRESULT STDMETHODCALLTYPE Subtract(LONG a, LONG b, LONG* difference) = 0;
};

struct ISample_v3 : ISample_v2 {
  using ISample_v1::Fail;
  virtual HRESULT STDMETHODCALLTYPE Fail(LONGLONG value, LONG* result) = 0;
};

// Has the process end where it is to create an object.
extern bool g_dies_at_creation;

// Calls of MakeBytes in this process that had their array.
extern std::atomic<LONG> g_arrays_made;

// Live objects of this process.
LONG ObjectCount();
// Until that many live.
void AwaitObjectCount(LONG count);

// Publishes the class and serves it in the calling thread's message loop until the quit message, or
// until its last object has gone. `on_published` runs once it is published. The status is that of
// publishing or revoking.
enum class ServeUntil { kQuit, kLastObjectGone };
HRESULT Serve(ServeUntil end, const std::function<void()>& on_published);

// A new object that no server knows.
HRESULT CreateDirectly(REFIID iid, void** object);

}  // namespace sample
