#include "platform/linux/services/registered_class.h"

#include "platform/linux/automation/guid_text.h"
#include "platform/linux/kernel/text.h"
#include "platform/linux/registry/classes_key.h"

namespace linux_host {
namespace {

// A text of the classes root in UTF-8; empty when there is none.
std::string TextAt(const std::wstring& path, const wchar_t* name) {
  ClassesKey key;
  std::wstring text;
  if (key.Open(path)) key.Get(name, text);
  return WideToUtf8(text);
}

}  // namespace

RegisteredClass FindRegisteredClass(REFCLSID id) {
  const std::wstring path = L"CLSID\\" + GuidText(id);
  RegisteredClass found;
  found.command = TextAt(path + L"\\LocalServer32", nullptr);
  const std::string app_id = TextAt(path, L"AppID");
  if (!app_id.empty()) found.service = TextAt(L"AppID\\" + Utf8ToWide(app_id), L"LocalService");
  return found;
}

}  // namespace linux_host
