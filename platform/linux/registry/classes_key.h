// An open key of the classes root, for the parts of the layer that register classes and libraries
// or look them up.
#pragma once

#include <windows.h>

#include <string>

namespace linux_host {

class ClassesKey {
 public:
  ClassesKey() = default;
  ~ClassesKey() {
    if (key_) RegCloseKey(key_);
  }
  ClassesKey(const ClassesKey&) = delete;
  ClassesKey& operator=(const ClassesKey&) = delete;

  // One of the two, once. False when there is no such key, or it cannot be made.
  bool Open(const std::wstring& path);
  bool Create(const std::wstring& path);

  // Texts; the name is null for the key's default value. False when there is no such text.
  bool Get(const wchar_t* name, std::wstring& text) const;
  bool Set(const wchar_t* name, const std::wstring& text) const;

  // The name of the subkey at that place.
  bool SubkeyAt(DWORD index, std::wstring& name) const;

 private:
  HKEY key_ = nullptr;
};

}  // namespace linux_host
