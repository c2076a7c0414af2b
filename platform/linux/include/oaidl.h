// Automation values, arrays and the interfaces for late-bound calls. Of the type description
// interfaces only the operations that this host models are declared.
#pragma once

#include <unknwn.h>
#include <wtypes.h>

struct SAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
};

// One dimension only on this host; made and destroyed by the functions of oleauto.h.
struct SAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
};
using LPSAFEARRAY = SAFEARRAY*;

#define FADF_AUTO 0x1
#define FADF_STATIC 0x2
#define FADF_EMBEDDED 0x4
#define FADF_FIXEDSIZE 0x10
#define FADF_HAVEVARTYPE 0x80
#define FADF_BSTR 0x100

struct IDispatch;
struct IRecordInfo;

struct VARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    LONGLONG llVal;
    ULONGLONG ullVal;
    LONG lVal;
    ULONG ulVal;
    INT intVal;
    UINT uintVal;
    SHORT iVal;
    USHORT uiVal;
    CHAR cVal;
    BYTE bVal;
    VARIANT_BOOL boolVal;
    SCODE scode;
    BSTR bstrVal;
    IUnknown* punkVal;
    IDispatch* pdispVal;
    SAFEARRAY* parray;
    LONGLONG* pllVal;
    LONG* plVal;
    SHORT* piVal;
    CHAR* pcVal;
    BYTE* pbVal;
    VARIANT_BOOL* pboolVal;
    BSTR* pbstrVal;
    SAFEARRAY** pparray;
    VARIANT* pvarVal;
    PVOID byref;
    struct {
      PVOID pvRecord;
      IRecordInfo* pRecInfo;
    };
  };
};
using VARIANTARG = VARIANT;
static_assert(sizeof(VARIANT) == 24);

using DISPID = LONG;
using MEMBERID = DISPID;
#define DISPID_UNKNOWN (-1)

// Arguments of a late-bound call, the last one first; named ones stand before all others.
struct DISPPARAMS {
  VARIANTARG* rgvarg;
  DISPID* rgdispidNamedArgs;
  UINT cArgs;
  UINT cNamedArgs;
};

struct EXCEPINFO {
  WORD wCode;
  WORD wReserved;
  BSTR bstrSource;
  BSTR bstrDescription;
  BSTR bstrHelpFile;
  DWORD dwHelpContext;
  PVOID pvReserved;
  HRESULT(STDMETHODCALLTYPE* pfnDeferredFillIn)(EXCEPINFO*);
  SCODE scode;
};

enum SYSKIND { SYS_WIN16 = 0, SYS_WIN32 = 1, SYS_MAC = 2, SYS_WIN64 = 3 };

struct TLIBATTR {
  GUID guid;
  LCID lcid;
  SYSKIND syskind;
  WORD wMajorVerNum;
  WORD wMinorVerNum;
  WORD wLibFlags;
};

extern const IID IID_IDispatch;
extern const IID IID_ITypeInfo;
extern const IID IID_ITypeLib;

// Describes one interface of a type library.
struct ITypeInfo : IUnknown {
  // Ids of a method (names[0]) and of its parameters by position (the further names), in any letter
  // case. DISP_E_UNKNOWNNAME when one is unknown; its id is then DISPID_UNKNOWN.
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* names, UINT count, MEMBERID* ids) = 0;

  // Calls the method with that id on `instance`, an object of the described interface. `result` and
  // `exception` may be null. On DISP_E_TYPEMISMATCH *bad_argument is its index in rgvarg.
  virtual HRESULT STDMETHODCALLTYPE Invoke(PVOID instance, MEMBERID id, WORD flags,
                                           DISPPARAMS* arguments, VARIANT* result,
                                           EXCEPINFO* exception, UINT* bad_argument) = 0;
};

struct ITypeLib : IUnknown {
  // TYPE_E_ELEMENTNOTFOUND unless the id is that of an interface of the library.
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoOfGuid(REFGUID id, ITypeInfo** info) = 0;

  // The attributes belong to the library until ReleaseTLibAttr.
  virtual HRESULT STDMETHODCALLTYPE GetLibAttr(TLIBATTR** attributes) = 0;
  virtual void STDMETHODCALLTYPE ReleaseTLibAttr(TLIBATTR* attributes) = 0;
};

struct IDispatch : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count,
                                                  LCID locale, DISPID* ids) = 0;
  virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID reserved, LCID locale, WORD flags,
                                           DISPPARAMS* arguments, VARIANT* result,
                                           EXCEPINFO* exception, UINT* bad_argument) = 0;
};
