// An object of another process, as a client holds it: each class derives one from Proxy that
// overrides the methods of its interface and hands their arguments to Forward.
#pragma once

#include <memory>
#include <utility>

#include "base/counted.h"
#include "base/typed_call.h"

namespace interface_schema {

// What carries a proxy's calls to the object. Called on any thread.
class RemoteObject {
 public:
  virtual ~RemoteObject() = default;
  // `words` are the arguments as the caller passed them.
  virtual HRESULT Call(MethodCall method, const CallWord* words) = 0;
  // Whether the class has this interface, which its objects answer for with their one pointer.
  virtual bool Answers(REFIID iid) const = 0;
  virtual HRESULT LoadTypeInfo(ITypeInfo** info) = 0;
};

template <typename Interface>
class Proxy : public Counted<Interface> {
 public:
  explicit Proxy(std::unique_ptr<RemoteObject> remote) : remote_(std::move(remote)) {}

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_INVALIDARG;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
    if (!info) return E_INVALIDARG;
    *info = nullptr;
    return index != 0 ? DISP_E_BADINDEX : remote_->LoadTypeInfo(info);
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override {
    return WithTypeInfo([&](ITypeInfo* info) { return info->GetIDsOfNames(names, count, ids); });
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* arguments,
                                   VARIANT* result, EXCEPINFO* exception,
                                   UINT* bad_argument) override {
    return WithTypeInfo([&](ITypeInfo* info) {
      return info->Invoke(this, id, flags, arguments, result, exception, bad_argument);
    });
  }

 protected:
  template <auto kMember, typename... Values>
  HRESULT Forward(Values... values) {
    static_assert(std::is_same_v<typename TypedCall<kMember>::Arguments, void(Values...)>);
    const CallWord words[] = {ToWord(values)...};
    return remote_->Call(&TypedCall<kMember>::Call, words);
  }

 private:
  bool Answers(REFIID iid) const override { return remote_->Answers(iid); }

  template <typename Use>
  HRESULT WithTypeInfo(Use use) {
    ITypeInfo* info;
    HRESULT status = remote_->LoadTypeInfo(&info);
    if (FAILED(status)) return status;
    status = use(info);
    info->Release();
    return status;
  }

  const std::unique_ptr<RemoteObject> remote_;
};

// What a class's description has for `make_proxy`.
template <typename Class>
IUnknown* MakeProxy(std::unique_ptr<RemoteObject> remote) {
  return new Class(std::move(remote));
}

}  // namespace interface_schema
