#include "tests/system_windows/type_library_text.h"

#include <map>
#include <sstream>
#include <vector>

#include "platform/windows/com_pointer.h"
#include "tests/system_windows/automation.h"
#include "tests/system_windows/text.h"

namespace system_windows {
namespace {

using windows_host::ComPointer;

struct Documentation {
  std::string name;
  std::string help;
};

// Of the type, or of the library: their methods for it look alike.
template <typename Described>
Documentation Document(Described* described, LONG member) {
  Bstr name;
  Bstr help;
  described->GetDocumentation(member, name.Receive(), help.Receive(), nullptr, nullptr);
  return {Utf8(name.Text()), Utf8(help.Text())};
}

std::string Quoted(const std::string& text) {
  return std::string(1, '"').append(text).append("\"");
}

ComPointer<ITypeInfo> Follow(ITypeInfo* type, HREFTYPE reference) {
  ComPointer<ITypeInfo> target;
  type->GetRefTypeInfo(reference, target.Receive());
  return target;
}

std::string NameOf(ITypeInfo* type, HREFTYPE reference) {
  const auto target = Follow(type, reference);
  return target ? Document(target.Get(), MEMBERID_NIL).name : "(unknown)";
}

std::string TypeText(ITypeInfo* type, const TYPEDESC& described) {
  static const std::map<VARTYPE, std::string> kNames = {
      {VT_BSTR, "BSTR"}, {VT_I4, "long"},   {VT_I2, "short"},
      {VT_I1, "char"},   {VT_I8, "int64"},  {VT_UI1, "unsigned char"},
      {VT_INT, "int"},   {VT_VOID, "void"}, {VT_HRESULT, "HRESULT"}};
  switch (described.vt) {
    case VT_PTR:
      return TypeText(type, *described.lptdesc) + "*";
    case VT_SAFEARRAY:
      return "SAFEARRAY(" + TypeText(type, *described.lptdesc) + ")";
    case VT_USERDEFINED:
      return NameOf(type, described.hreftype);
    default:
      const auto found = kNames.find(described.vt);
      return found != kNames.end() ? found->second : std::to_string(described.vt);
  }
}

using FlagNames = std::vector<std::pair<unsigned, const char*>>;

// The names of the flags, with what stands between them, and whatever else is set.
std::string FlagsText(unsigned flags, const FlagNames& names, const std::string& between) {
  std::string text;
  for (const auto& [flag, name] : names) {
    if ((flags & flag) != 0) text.append(text.empty() ? "" : between).append(name);
    flags &= ~flag;
  }
  return flags == 0 ? text : text.append(" flags ").append(std::to_string(flags));
}

std::string ParameterFlags(USHORT flags) {
  static const FlagNames kNames = {
      {PARAMFLAG_FIN, "in"}, {PARAMFLAG_FOUT, "out"}, {PARAMFLAG_FRETVAL, "retval"}};
  return std::string("[").append(FlagsText(flags, kNames, ", ")).append("] ");
}

std::string TypeFlags(WORD flags) {
  static const FlagNames kNames = {{TYPEFLAG_FCANCREATE, "creatable"},
                                   {TYPEFLAG_FDUAL, "dual"},
                                   {TYPEFLAG_FOLEAUTOMATION, "automation"},
                                   {TYPEFLAG_FNONEXTENSIBLE, "nonextensible"},
                                   {TYPEFLAG_FDISPATCHABLE, "dispatchable"}};
  return std::string(" ").append(FlagsText(flags, kNames, " "));
}

// One type, with what the system keeps of it while it is looked at.
class TypeWriter {
 public:
  TypeWriter(ITypeInfo* type, std::ostream& out) : type_(type), out_(out) {
    type_->GetTypeAttr(&attributes_);
  }
  TypeWriter(const TypeWriter&) = delete;
  TypeWriter& operator=(const TypeWriter&) = delete;
  ~TypeWriter() { type_->ReleaseTypeAttr(attributes_); }

  void Write() {
    switch (attributes_->typekind) {
      case TKIND_COCLASS:
        Head("class");
        out_ << TypeFlags(attributes_->wTypeFlags) << "\n";
        WriteImplemented();
        break;
      case TKIND_DISPATCH:
        WriteDual();
        break;
      case TKIND_INTERFACE:
        WriteInterface();
        break;
      case TKIND_ALIAS:
        Head("alias");
        out_ << " of " << attributes_->cbSizeInstance << " bytes\n  of "
             << TypeText(type_, attributes_->tdescAlias) << "\n";
        break;
      case TKIND_ENUM:
        out_ << "enumeration " << Document(type_, MEMBERID_NIL).name << " of "
             << attributes_->cbSizeInstance << " bytes\n";
        WriteVariables();
        break;
      case TKIND_RECORD:
        Head("record");
        out_ << " " << attributes_->cbSizeInstance << " bytes\n";
        WriteVariables();
        break;
      default:
        out_ << "kind " << attributes_->typekind << "\n";
    }
  }

 private:
  void Head(const char* kind) {
    const Documentation text = Document(type_, MEMBERID_NIL);
    out_ << kind << " " << text.name << " " << Utf8(GuidText(attributes_->guid)) << " "
         << Quoted(text.help);
  }

  void WriteImplemented() {
    for (UINT i = 0; i < attributes_->cImplTypes; ++i) {
      HREFTYPE reference = 0;
      INT flags = 0;
      type_->GetRefTypeOfImplType(i, &reference);
      type_->GetImplTypeFlags(static_cast<INT>(i), &flags);
      out_ << (flags == IMPLTYPEFLAG_FDEFAULT ? "  default " : "  ") << NameOf(type_, reference)
           << "\n";
    }
  }

  // A dual interface is listed with its late-bound side, which leads to the other.
  void WriteDual() {
    HREFTYPE reference = 0;
    if (FAILED(type_->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference))) {
      out_ << "not dual\n";
      return;
    }
    const auto other = Follow(type_, reference);
    if (other) TypeWriter(other.Get(), out_).WriteInterface();
  }

  void WriteInterface() {
    Head("interface");
    HREFTYPE base = 0;
    type_->GetRefTypeOfImplType(0, &base);
    out_ << TypeFlags(attributes_->wTypeFlags) << " extends " << NameOf(type_, base) << "\n";
    for (UINT i = 0; i < attributes_->cFuncs; ++i) WriteMethod(i);
  }

  void WriteMethod(UINT index) {
    FUNCDESC* function = nullptr;
    if (FAILED(type_->GetFuncDesc(index, &function))) return;
    BSTR names[16] = {};
    UINT count = 0;
    type_->GetNames(function->memid, names, 16, &count);
    const std::string result = TypeText(type_, function->elemdescFunc.tdesc);
    out_ << "  " << function->oVft / static_cast<SHORT>(sizeof(void*)) << " id " << function->memid
         << " " << (result == "HRESULT" ? "" : result + " ") << Utf8(names[0] ? names[0] : L"")
         << "(";
    for (SHORT i = 0; i < function->cParams; ++i) {
      const ELEMDESC& parameter = function->lprgelemdescParam[i];
      const BSTR name = names[i + 1];
      out_ << (i > 0 ? ", " : "") << ParameterFlags(parameter.paramdesc.wParamFlags)
           << TypeText(type_, parameter.tdesc) << " " << Utf8(name ? name : L"(no name)");
    }
    out_ << ") " << Quoted(Document(type_, function->memid).help) << "\n";
    for (const BSTR name : names) SysFreeString(name);
    type_->ReleaseFuncDesc(function);
  }

  void WriteVariables() {
    for (UINT i = 0; i < attributes_->cVars; ++i) {
      VARDESC* variable = nullptr;
      if (FAILED(type_->GetVarDesc(i, &variable))) continue;
      const Documentation text = Document(type_, variable->memid);
      if (variable->varkind == VAR_CONST) {
        out_ << "  " << text.name << " = " << V_I4(variable->lpvarValue) << " " << Quoted(text.help)
             << "\n";
      } else {
        out_ << "  " << variable->oInst << " " << TypeText(type_, variable->elemdescVar.tdesc)
             << " " << text.name << "\n";
      }
      type_->ReleaseVarDesc(variable);
    }
  }

  ITypeInfo* type_;
  std::ostream& out_;
  TYPEATTR* attributes_ = nullptr;
};

}  // namespace

std::string TypeLibraryText(ITypeLib* library) {
  std::ostringstream out;
  TLIBATTR* attributes = nullptr;
  if (FAILED(library->GetLibAttr(&attributes))) return "no attributes";
  const Documentation text = Document(library, -1);
  out << "library " << text.name << " " << attributes->wMajorVerNum << "."
      << attributes->wMinorVerNum << " " << Utf8(GuidText(attributes->guid)) << " locale "
      << std::hex << attributes->lcid << std::dec << " " << Quoted(text.help) << "\n";
  library->ReleaseTLibAttr(attributes);
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    ComPointer<ITypeInfo> type;
    if (SUCCEEDED(library->GetTypeInfo(i, type.Receive()))) TypeWriter(type.Get(), out).Write();
  }
  return out.str();
}

}  // namespace system_windows
