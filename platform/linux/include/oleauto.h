// Automation strings, arrays, values and type libraries.
//
// Byte counts of strings are in the host's characters: a WCHAR has four bytes here, so a string of
// n characters counts 4n.
#pragma once

#include <oaidl.h>

extern "C" {

// Strings. Each allocation is the caller's to free; null in gives null out, and freeing null does
// nothing. The result is null when memory is short.
BSTR SysAllocString(const OLECHAR* text);
BSTR SysAllocStringLen(const OLECHAR* text, UINT length);  // a null text leaves it uninitialised
void SysFreeString(BSTR string);
UINT SysStringLen(BSTR string);  // in characters, a last partial one not counted

// Arrays of one dimension whose elements are integers, booleans or strings. The elements begin as
// zero or null. Null when the type or the dimension count is not modelled, or memory is short.
SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds);
SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lower_bound, ULONG count);
// Frees the elements and the array. DISP_E_ARRAYISLOCKED while anybody accesses its storage; null
// succeeds.
HRESULT SafeArrayDestroy(SAFEARRAY* array);
// Locks the array and gives its storage: null where it has none.
HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data);
HRESULT SafeArrayUnaccessData(SAFEARRAY* array);
UINT SafeArrayGetDim(SAFEARRAY* array);       // 0 for null
UINT SafeArrayGetElemsize(SAFEARRAY* array);  // 0 for null
// Dimensions count from 1; DISP_E_BADINDEX beyond the last.
HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound);
HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound);
HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type);

// Values.
void VariantInit(VARIANTARG* value);
HRESULT VariantClear(VARIANTARG* value);  // frees what it owns; what it refers to stays
// Between integers, booleans and decimal strings of them, following one reference. DISP_E_OVERFLOW
// when the number does not fit, DISP_E_TYPEMISMATCH when there is no conversion.
HRESULT VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT flags,
                          VARTYPE type);

#define DISPATCH_METHOD 0x1
#define DISPATCH_PROPERTYGET 0x2
#define DISPATCH_PROPERTYPUT 0x4
#define DISPATCH_PROPERTYPUTREF 0x8

#define V_VT(X) ((X)->vt)
#define V_UNION(X, Y) ((X)->Y)
#define V_ISBYREF(X) (V_VT(X) & VT_BYREF)
#define V_ISARRAY(X) (V_VT(X) & VT_ARRAY)
#define V_I1(X) V_UNION(X, cVal)
#define V_I2(X) V_UNION(X, iVal)
#define V_I4(X) V_UNION(X, lVal)
#define V_I4REF(X) V_UNION(X, plVal)
#define V_I8(X) V_UNION(X, llVal)
#define V_I8REF(X) V_UNION(X, pllVal)
#define V_BSTR(X) V_UNION(X, bstrVal)
#define V_BSTRREF(X) V_UNION(X, pbstrVal)
#define V_ARRAY(X) V_UNION(X, parray)
#define V_ARRAYREF(X) V_UNION(X, pparray)

// Type libraries. A program carries at most one, as a resource of its executable, so a path names a
// library only when it is the path of this program's executable: TYPE_E_CANTLOADLIBRARY otherwise.
HRESULT LoadTypeLib(const OLECHAR* path, ITypeLib** library);
// The library registered under that id. A registered library whose file is gone, or that is not the
// one this program carries, cannot be loaded; TYPE_E_LIBNOTREGISTERED when there is none.
HRESULT LoadRegTypeLib(REFGUID id, WORD major, WORD minor, LCID locale, ITypeLib** library);
// Writes the library's and its interfaces' entries under the classes root; a null help directory
// leaves that entry out. Then has the message buses know the class as it is registered at that
// moment, so that they start its server. TYPE_E_REGISTRYACCESS when this cannot be written.
HRESULT RegisterTypeLib(ITypeLib* library, const OLECHAR* path, const OLECHAR* help_directory);
// Takes all of it away again, from the buses also when the library is not registered
// (TYPE_E_REGISTRYACCESS).
HRESULT UnRegisterTypeLib(REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND kind);

}  // extern "C"
