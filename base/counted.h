// The base of objects of a component interface that are deleted with their last reference.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <atomic>

namespace interface_schema {

// Begins with one reference, its maker's. All its interfaces are one pointer.
template <typename Interface>
class Counted : public Interface {
 public:
  Counted() = default;
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    const bool answers = Answers(iid);
    *object = answers ? static_cast<Interface*>(this) : nullptr;
    if (!answers) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 protected:
  virtual ~Counted() = default;

 private:
  // Whether it has this interface.
  virtual bool Answers(REFIID iid) const = 0;

  std::atomic<ULONG> references_{1};
};

}  // namespace interface_schema
