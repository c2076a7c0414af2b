// The program's type library and its registration.
#pragma once

#include <oaidl.h>

#include "base/counted.h"
#include "base/interface_schema.h"

namespace linux_host {

// Over a description that lives as long as the process. Begins with one reference, the caller's.
ITypeLib* MakeTypeLibrary(const interface_schema::Library& description);

// Describes one interface of it, likewise.
ITypeInfo* MakeTypeInfo(const interface_schema::Interface& description);

// The base of what both are.
template <typename Interface, const IID& kId>
class CountedDescription : public interface_schema::Counted<Interface> {
  bool Answers(REFIID iid) const override {
    return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, kId);
  }
};

}  // namespace linux_host
