#include "tests/unit/platform/component/sample_object.h"

#include <windows.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>

namespace sample {
namespace {

std::mutex g_mutex;
std::condition_variable g_changed;
bool g_is_gate_open = true;
int g_callers_at_gate = 0;
LONG g_objects = 0;
std::function<void()> g_on_empty;

void ChangeObjectCount(LONG change) {
  std::function<void()> on_empty;
  {
    std::lock_guard lock(g_mutex);
    g_objects += change;
    if (g_objects == 0) on_empty = g_on_empty;
    g_changed.notify_all();
  }
  if (on_empty) on_empty();
}

SAFEARRAY* CopyBytes(SAFEARRAY* source) {
  const ULONG count = source->rgsabound[0].cElements;
  SAFEARRAY* copy = SafeArrayCreateVector(VT_UI1, 0, count);
  if (copy != nullptr && count != 0) std::memcpy(copy->pvData, source->pvData, count);
  return copy;
}

class Object final : public ISample_v3 {
 public:
  Object() { ChangeObjectCount(1); }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    const bool answers = iid == IID_IUnknown || iid == IID_IDispatch || iid == kInterfaceIdV1 ||
                         iid == kInterfaceIdV2 || iid == kInterfaceIdV3;
    *object = answers ? this : nullptr;
    if (!answers) return E_NOINTERFACE;
    ++references_;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    *count = 0;
    return S_OK;
  }
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
    const auto base = static_cast<std::uint8_t>(seed);
    status->first = base;
    status->second = 255;
    status->third = -2;
    status->fourth = 4;
    status->fifth = 5;
    status->sixth = 32767;
    status->seventh = -32768;
    status->eighth = 8;
    status->ninth = 900;
    for (std::uint8_t i = 0; i < 8; ++i) status->rest[i] = static_cast<std::uint8_t>(base + i);
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
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE WaitAtGate(LONG* passed) override {
    std::unique_lock lock(g_mutex);
    ++g_callers_at_gate;
    g_changed.notify_all();
    g_changed.wait(lock, [] { return g_is_gate_open; });
    --g_callers_at_gate;
    *passed = 1;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE CountObjects(LONG* count) override {
    *count = ObjectCount();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Sum(LONG a, LONG b, LONG* sum) override {
    *sum = a + b;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Fail(LONGLONG value, LONG* result) override {
    *result = value < 0 ? -1 : 1;
    return S_OK;
  }

 private:
  ~Object() { ChangeObjectCount(-1); }

  ULONG references_ = 0;
};

class Factory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    *object = iid == IID_IUnknown || iid == IID_IClassFactory ? this : nullptr;
    return *object == nullptr ? E_NOINTERFACE : S_OK;
  }
  // Lives as long as the process.
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    return outer != nullptr ? CLASS_E_NOAGGREGATION : CreateDirectly(iid, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return E_NOTIMPL; }
};

}  // namespace

void Gate::Close() {
  std::lock_guard lock(g_mutex);
  g_is_gate_open = false;
}

void Gate::Open() {
  std::lock_guard lock(g_mutex);
  g_is_gate_open = true;
  g_changed.notify_all();
}

void Gate::AwaitCaller() {
  std::unique_lock lock(g_mutex);
  g_changed.wait(lock, [] { return g_callers_at_gate > 0; });
}

LONG ObjectCount() {
  std::lock_guard lock(g_mutex);
  return g_objects;
}

void AwaitObjectCount(LONG count) {
  std::unique_lock lock(g_mutex);
  g_changed.wait(lock, [count] { return g_objects == count; });
}

HRESULT CreateDirectly(REFIID iid, void** object) {
  auto* created = new Object;
  created->AddRef();
  const HRESULT status = created->QueryInterface(iid, object);
  created->Release();
  return status;
}

HRESULT Serve(const std::function<void()>& on_published, const std::function<void()>& on_empty) {
  static Factory factory;
  HRESULT status = CoInitialize(nullptr);
  if (FAILED(status)) return status;
  {
    std::lock_guard lock(g_mutex);
    g_on_empty = on_empty;
  }
  DWORD cookie = 0;
  status =
      CoRegisterClassObject(kClassId, &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie);
  if (SUCCEEDED(status)) {
    if (on_published) on_published();
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    status = CoRevokeClassObject(cookie);
  }
  {
    std::lock_guard lock(g_mutex);
    g_on_empty = nullptr;
  }
  CoUninitialize();
  return status;
}

}  // namespace sample
