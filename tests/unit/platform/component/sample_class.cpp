#include "tests/unit/platform/component/sample_class.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/proxy.h"

namespace sample {
namespace {

using namespace interface_schema;
using enum ValueType;

using V1 = ISample_v1;
using V2 = ISample_v2;
using V3 = ISample_v3;

constexpr Parameter kColour = Retval(L"colour", kEnumeration, L"Colour");

constexpr Method kMethodsV1[] = {
    Describe<&V1::Echo>(
        7, 1, L"Echo", L"",
        {In(L"text", kBstr), In(L"number", kLong), In(L"small", kShort), In(L"tiny", kChar),
         In(L"wide", kInt64), In(L"colour", kEnumeration, L"Colour"), Out(L"textOut", kBstr),
         Out(L"numberOut", kLong), Out(L"smallOut", kShort), Out(L"tinyOut", kChar),
         Out(L"wideOut", kInt64), Retval(L"colourOut", kEnumeration, L"Colour")}),
    Describe<&V1::EchoBytes>(
        8, 2, L"EchoBytes", L"",
        {In(L"bytes", kByteArray), Out(L"RESULT", kByteArray), Retval(L"count", kLong)}),
    Describe<&V1::EchoStrings>(
        9, 3, L"EchoStrings", L"",
        {In(L"strings", kStringArray), Out(L"stringsOut", kStringArray), kColour}),
    Describe<&V1::GetStatus>(10, 4, L"GetStatus", L"",
                             {In(L"seed", kLong), Out(L"status", kRecord, L"Status"), kColour}),
    Describe<&V1::Fail>(11, 5, L"Fail", L"", {In(L"status", kLong), Retval(L"text", kBstr)}),
    Describe<&V1::MakeBytes>(12, 6, L"MakeBytes", L"",
                             {In(L"count", kInt64), Retval(L"bytes", kByteArray)}),
    Describe<&V1::CountObjects>(13, 8, L"CountObjects", L"", {Retval(L"count", kLong)})};
constexpr Method kMethodsV2[] = {Describe<&V2::Subtract>(
    14, 10, L"Subtract", L"", {In(L"a", kLong), In(L"b", kLong), Retval(L"difference", kLong)})};
constexpr Method kMethodsV3[] = {Describe<OwnMember<V3>(&V3::Fail)>(
    15, 20, L"Fail", L"", {In(L"value", kInt64), Retval(L"result", kLong)})};

constexpr Interface kV1 = {L"ISample_v1", &kInterfaceIdV1, L"", nullptr, kMethodsV1};
constexpr Interface kV2 = {L"ISample_v2", &kInterfaceIdV2, L"", &kV1, kMethodsV2};
constexpr Interface kV3 = {L"ISample_v3", &kInterfaceIdV3, L"", &kV2, kMethodsV3};
constexpr const Interface* kInterfaces[] = {&kV3, &kV2, &kV1};

constexpr Field kFields[] = {{L"first", FieldType::kUnsigned8, 0},
                             {L"second", FieldType::kSigned16, 2},
                             {L"third", FieldType::kUnsigned8, 4},
                             {L"fourth", FieldType::kUnsigned8, 5}};
constexpr GUID kTypeId = {0x5A000005, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constexpr Record kStatus = {L"Status", &kTypeId, L"", sizeof(Status), kFields};
constexpr Constant kConstants[] = {{L"GREEN", 272, L""}};
constexpr Enumeration kColours = {L"Colour", &kTypeId, L"", kConstants};
constexpr UserType kTypes[] = {{&kColours, nullptr}, {nullptr, &kStatus}};

class SampleProxy final : public Proxy<ISample_v3> {
 public:
  using Proxy::Proxy;

  HRESULT STDMETHODCALLTYPE Echo(BSTR text, LONG number, SHORT small, CHAR tiny, LONGLONG wide,
                                 Colour colour, BSTR* text_out, LONG* number_out, SHORT* small_out,
                                 CHAR* tiny_out, LONGLONG* wide_out, Colour* colour_out) override {
    return Forward<&V1::Echo>(text, number, small, tiny, wide, colour, text_out, number_out,
                              small_out, tiny_out, wide_out, colour_out);
  }
  HRESULT STDMETHODCALLTYPE EchoBytes(SAFEARRAY* bytes, SAFEARRAY** bytes_out,
                                      LONG* count) override {
    return Forward<&V1::EchoBytes>(bytes, bytes_out, count);
  }
  HRESULT STDMETHODCALLTYPE EchoStrings(SAFEARRAY* strings, SAFEARRAY** strings_out,
                                        Colour* colour) override {
    return Forward<&V1::EchoStrings>(strings, strings_out, colour);
  }
  HRESULT STDMETHODCALLTYPE GetStatus(LONG seed, Status* status, Colour* colour) override {
    return Forward<&V1::GetStatus>(seed, status, colour);
  }
  HRESULT STDMETHODCALLTYPE Fail(LONG status, BSTR* text) override {
    return Forward<&V1::Fail>(status, text);
  }
  HRESULT STDMETHODCALLTYPE MakeBytes(LONGLONG count, SAFEARRAY** bytes) override {
    return Forward<&V1::MakeBytes>(count, bytes);
  }
  HRESULT STDMETHODCALLTYPE CountObjects(LONG* count) override {
    return Forward<&V1::CountObjects>(count);
  }
  HRESULT STDMETHODCALLTYPE Subtract(LONG a, LONG b, LONG* difference) override {
    return Forward<&V2::Subtract>(a, b, difference);
  }
  HRESULT STDMETHODCALLTYPE Fail(LONGLONG value, LONG* result) override {
    return Forward<OwnMember<V3>(&V3::Fail)>(value, result);
  }
};

constexpr ComponentClass kClass = {L"Sample", &kClassId, L"", &kV3, &MakeProxy<SampleProxy>};

std::atomic<LONG> g_objects = 0;
std::atomic<bool> g_ends_without_objects = false;

SAFEARRAY* CopyBytes(SAFEARRAY* source) {
  const ULONG count = source->rgsabound[0].cElements;
  SAFEARRAY* copy = SafeArrayCreateVector(VT_UI1, 0, count);
  if (copy && count != 0) std::memcpy(copy->pvData, source->pvData, count);
  return copy;
}

class Object final : public Counted<ISample_v3> {
 public:
  Object() {
    ++g_objects;
    g_objects.notify_all();
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return E_FAIL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return E_FAIL;
  }

  HRESULT STDMETHODCALLTYPE Echo(BSTR text, LONG number, SHORT small, CHAR tiny, LONGLONG wide,
                                 Colour colour, BSTR* text_out, LONG* number_out, SHORT* small_out,
                                 CHAR* tiny_out, LONGLONG* wide_out, Colour* colour_out) override {
    *text_out = SysAllocStringLen(text, SysStringLen(text));
    *number_out = number;
    *small_out = small;
    *tiny_out = tiny;
    *wide_out = wide;
    *colour_out = colour;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE EchoBytes(SAFEARRAY* bytes, SAFEARRAY** bytes_out,
                                      LONG* count) override {
    *count = static_cast<LONG>(bytes->rgsabound[0].cElements);
    *bytes_out = CopyBytes(bytes);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE EchoStrings(SAFEARRAY* strings, SAFEARRAY** strings_out,
                                        Colour* colour) override {
    const ULONG count = strings->rgsabound[0].cElements;
    *colour = static_cast<Colour>(count);
    *strings_out = SafeArrayCreateVector(VT_BSTR, 0, count);
    for (ULONG i = 0; i < count; ++i) {
      const BSTR text = static_cast<BSTR*>(strings->pvData)[i];
      static_cast<BSTR*>((*strings_out)->pvData)[i] = SysAllocStringLen(text, SysStringLen(text));
    }
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetStatus(LONG seed, Status* status, Colour* colour) override {
    *status = {static_cast<std::uint8_t>(seed), -2, 255, 4};
    *colour = Colour::kBlue;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Fail(LONG status, BSTR* text) override {
    *text = SysAllocString(L"left behind");
    if (status == 0) throw std::bad_alloc();
    return status;
  }

  HRESULT STDMETHODCALLTYPE MakeBytes(LONGLONG count, SAFEARRAY** bytes) override {
    *bytes = count < 0 ? nullptr : SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(count));
    if (*bytes) ++g_arrays_made;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE CountObjects(LONG* count) override {
    *count = ObjectCount();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Subtract(LONG a, LONG b, LONG* difference) override {
    *difference = a - b;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Fail(LONGLONG value, LONG* result) override {
    *result = value < 0 ? -1 : 1;
    return S_OK;
  }

 private:
  ~Object() override {
    if (--g_objects == 0 && g_ends_without_objects) {
      PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
    }
    g_objects.notify_all();
  }

  bool Answers(REFIID iid) const override {
    return iid == IID_IUnknown || iid == IID_IDispatch || iid == kInterfaceIdV1 ||
           iid == kInterfaceIdV2 || iid == kInterfaceIdV3;
  }
};

class Factory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    *object = iid == IID_IUnknown || iid == IID_IClassFactory ? this : nullptr;
    return !*object ? E_NOINTERFACE : S_OK;
  }
  // Lives as long as the process.
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    return outer ? CLASS_E_NOAGGREGATION : CreateDirectly(iid, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return E_NOTIMPL; }
};

}  // namespace

constinit const GUID kLibraryId = {0x5A000000, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kClassId = {0x5A000001, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kInterfaceIdV1 = {0x5A000002, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kInterfaceIdV2 = {0x5A000003, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constinit const GUID kInterfaceIdV3 = {0x5A000004, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};

constinit const interface_schema::Library kLibrary = {
    L"SampleLib", &kLibraryId, 1,     0, 0x409, L"Sample 1.0 Type Library",
    &kClass,      kInterfaces, kTypes};

std::atomic<LONG> g_arrays_made = 0;
bool g_dies_at_creation = false;

LONG ObjectCount() { return g_objects; }

void AwaitObjectCount(LONG count) {
  for (LONG now = g_objects; now != count; now = g_objects) g_objects.wait(now);
}

HRESULT CreateDirectly(REFIID iid, void** object) {
  if (g_dies_at_creation) std::_Exit(3);
  auto* created = new Object;
  const HRESULT status = created->QueryInterface(iid, object);
  created->Release();
  return status;
}

HRESULT Serve(ServeUntil end, const std::function<void()>& on_published) {
  static Factory factory;
  HRESULT status = CoInitialize(nullptr);
  if (FAILED(status)) return status;
  g_ends_without_objects = end == ServeUntil::kLastObjectGone;
  DWORD cookie = 0;
  status =
      CoRegisterClassObject(kClassId, &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie);
  if (SUCCEEDED(status)) {
    if (on_published) on_published();
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    status = CoRevokeClassObject(cookie);
  }
  CoUninitialize();
  return status;
}

}  // namespace sample
