// Automation: strings and values that pass between programs, calls by name and by number, type
// libraries, and connection points.
//
// Each interface's operations stand in the order of their slots. They return S_OK or another
// HRESULT. What they return through a pointer belongs to the caller, who releases a reference with
// Release, a string with SysFreeString and a value with VariantClear.
#pragma once

#include "platform/com.h"

#ifdef _WIN32

// Each needs the ones before it.
#include <ocidl.h>
#include <oleauto.h>
#include <olectl.h>

// Missing from some SDKs' headers.
extern "C" {
HRESULT WINAPI RegisterTypeLibForUser(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder);
HRESULT WINAPI UnRegisterTypeLibForUser(REFGUID guid, WORD major, WORD minor, LCID locale,
                                        SYSKIND system);
}

#else

using OLECHAR = wchar_t;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using BSTR = OLECHAR*;
using LCID = DWORD;
using DISPID = LONG;
using MEMBERID = DISPID;
using VARTYPE = USHORT;
using VARIANT_BOOL = SHORT;
using SCODE = LONG;

#define VARIANT_TRUE (static_cast<VARIANT_BOOL>(-1))
#define VARIANT_FALSE (static_cast<VARIANT_BOOL>(0))

enum VARENUM
{
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_VOID = 24,
    VT_HRESULT = 25,
    VT_BYREF = 0x4000,
    VT_TYPEMASK = 0xFFF,
};

#define LOCALE_USER_DEFAULT 0x0400u

#define DISPATCH_METHOD 0x1
#define DISPATCH_PROPERTYGET 0x2
#define DISPATCH_PROPERTYPUT 0x4
#define DISPATCH_PROPERTYPUTREF 0x8

#define DISPID_UNKNOWN (-1)
#define DISPID_PROPERTYPUT (-3)

#define DISP_E_UNKNOWNINTERFACE (static_cast<HRESULT>(0x80020001u))
#define DISP_E_MEMBERNOTFOUND (static_cast<HRESULT>(0x80020003u))
#define DISP_E_PARAMNOTFOUND (static_cast<HRESULT>(0x80020004u))
#define DISP_E_TYPEMISMATCH (static_cast<HRESULT>(0x80020005u))
#define DISP_E_UNKNOWNNAME (static_cast<HRESULT>(0x80020006u))
#define DISP_E_NONAMEDARGS (static_cast<HRESULT>(0x80020007u))
#define DISP_E_BADVARTYPE (static_cast<HRESULT>(0x80020008u))
#define DISP_E_OVERFLOW (static_cast<HRESULT>(0x8002000Au))
#define DISP_E_BADINDEX (static_cast<HRESULT>(0x8002000Bu))
#define DISP_E_BADPARAMCOUNT (static_cast<HRESULT>(0x8002000Eu))
#define DISP_E_PARAMNOTOPTIONAL (static_cast<HRESULT>(0x8002000Fu))
#define TYPE_E_REGISTRYACCESS (static_cast<HRESULT>(0x8002801Cu))
#define TYPE_E_LIBNOTREGISTERED (static_cast<HRESULT>(0x8002801Du))
#define TYPE_E_ELEMENTNOTFOUND (static_cast<HRESULT>(0x8002802Bu))
#define TYPE_E_CANTLOADLIBRARY (static_cast<HRESULT>(0x80029C4Au))
#define CONNECT_E_NOCONNECTION (static_cast<HRESULT>(0x80040200u))
#define CONNECT_E_CANNOTCONNECT (static_cast<HRESULT>(0x80040202u))

class IDispatch;
class IRecordInfo;

// A value with its type. With VT_BYREF it is the address of a value that belongs to the caller.
struct VARIANT
{
    VARTYPE vt;
    WORD wReserved1, wReserved2, wReserved3;
    union
    {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        BYTE* pbVal;
        SHORT* piVal;
        LONG* plVal;
        LONGLONG* pllVal;
        VARIANT_BOOL* pboolVal;
        BSTR* pbstrVal;
        IDispatch** ppdispVal;
        VARIANT* pvarVal;
        ULONG* pulVal;
        INT* pintVal;
        UINT* puintVal;
        PVOID byref;
        struct
        {
            PVOID pvRecord;
            IRecordInfo* pRecInfo;
        } brecVal;
    };
};
using VARIANTARG = VARIANT;
static_assert(sizeof(void*) != 8 || sizeof(VARIANT) == 24);

// Arguments stand in reverse order, the named ones first.
struct DISPPARAMS
{
    VARIANTARG* rgvarg;
    DISPID* rgdispidNamedArgs;
    UINT cArgs;
    UINT cNamedArgs;
};

struct EXCEPINFO
{
    WORD wCode;
    WORD wReserved;
    BSTR bstrSource;
    BSTR bstrDescription;
    BSTR bstrHelpFile;
    DWORD dwHelpContext;
    PVOID pvReserved;
    HRESULT(WINAPI* pfnDeferredFillIn)(EXCEPINFO* info);
    SCODE scode;
};

enum SYSKIND
{
    SYS_WIN16,
    SYS_WIN32,
    SYS_MAC,
    SYS_WIN64,
};

inline constexpr IID IID_IDispatch{
    0x00020400, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_ITypeInfo{
    0x00020401, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_ITypeLib{
    0x00020402, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_IConnectionPointContainer{
    0xB196B284, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
inline constexpr IID IID_IEnumConnectionPoints{
    0xB196B285, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
inline constexpr IID IID_IConnectionPoint{
    0xB196B286, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
inline constexpr IID IID_IEnumConnections{
    0xB196B287, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};

class ITypeLib;
class ITypeInfo;
class ITypeComp;
struct TYPEATTR;
struct FUNCDESC;
struct VARDESC;
struct TLIBATTR;
enum TYPEKIND : int;
enum DESCKIND : int;
enum INVOKEKIND : int;

class IDispatch : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) = 0;
    // The dispatch ids of a member (the first name) and of its parameters (the others). An unknown
    // name gets DISPID_UNKNOWN, and the result is then DISP_E_UNKNOWNNAME.
    virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count,
                                                    LCID locale, DISPID* ids) = 0;
    // Calls a member. `result`, `exception` and `badArgument` may be null. With DISP_E_TYPEMISMATCH
    // and DISP_E_PARAMNOTFOUND, `badArgument` receives the index of the wrong argument.
    virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID reserved, LCID locale,
                                             WORD flags, DISPPARAMS* arguments, VARIANT* result,
                                             EXCEPINFO* exception, UINT* badArgument) = 0;

protected:
    ~IDispatch() = default;
};

// A type library's description of one type.
class ITypeInfo : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** attributes) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeComp** comp) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT index, FUNCDESC** function) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVarDesc(UINT index, VARDESC** variable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNames(MEMBERID member, BSTR* names, UINT most,
                                               UINT* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT index, DWORD* type) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT index, INT* flags) = 0;
    // Like IDispatch::GetIDsOfNames.
    virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* names, UINT count, MEMBERID* ids) = 0;
    // Calls the member of `instance`, an interface of this type, through its slot.
    virtual HRESULT STDMETHODCALLTYPE Invoke(PVOID instance, MEMBERID member, WORD flags,
                                             DISPPARAMS* arguments, VARIANT* result,
                                             EXCEPINFO* exception, UINT* badArgument) = 0;
    // The names and texts of a member, or of the type itself for -1. Each pointer may be null.
    virtual HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID member, BSTR* name, BSTR* text,
                                                       DWORD* helpContext, BSTR* helpFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDllEntry(MEMBERID member, INVOKEKIND kind, BSTR* dll,
                                                  BSTR* name, WORD* ordinal) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRefTypeInfo(DWORD type, ITypeInfo** info) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddressOfMember(MEMBERID member, INVOKEKIND kind,
                                                      PVOID* address) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, PVOID* object) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMops(MEMBERID member, BSTR* mops) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib** library, UINT* index) = 0;
    virtual void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* attributes) = 0;
    virtual void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC* function) = 0;
    virtual void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC* variable) = 0;

protected:
    ~ITypeInfo() = default;
};

class ITypeLib : public IUnknown
{
public:
    virtual UINT STDMETHODCALLTYPE GetTypeInfoCount() = 0;
    // The library's type at an index.
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, ITypeInfo** info) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfoType(UINT index, TYPEKIND* kind) = 0;
    // The library's type with this identifier; TYPE_E_ELEMENTNOTFOUND when it has none.
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfoOfGuid(REFGUID guid, ITypeInfo** info) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetLibAttr(TLIBATTR** attributes) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeComp** comp) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDocumentation(INT index, BSTR* name, BSTR* text,
                                                       DWORD* helpContext, BSTR* helpFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsName(LPOLESTR name, ULONG hash, BOOL* is) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindName(LPOLESTR name, ULONG hash, ITypeInfo** infos,
                                               MEMBERID* members, USHORT* count) = 0;
    virtual void STDMETHODCALLTYPE ReleaseTLibAttr(TLIBATTR* attributes) = 0;

protected:
    ~ITypeLib() = default;
};

// --- Connection points ---

class IConnectionPoint;
class IConnectionPointContainer;

struct CONNECTDATA
{
    IUnknown* pUnk;
    DWORD dwCookie;
};

// Next returns at most `count` elements from the current position and their number in *given;
// S_FALSE when there were fewer. `given` may be null for a count of 1.
class IEnumConnections : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, CONNECTDATA* connections, ULONG* given) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumConnections** copy) = 0;

protected:
    ~IEnumConnections() = default;
};

class IEnumConnectionPoints : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, IConnectionPoint** points,
                                           ULONG* given) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumConnectionPoints** copy) = 0;

protected:
    ~IEnumConnectionPoints() = default;
};

// Where sinks for one outgoing interface connect.
class IConnectionPoint : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* id) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    GetConnectionPointContainer(IConnectionPointContainer** container) = 0;
    // Holds a reference to the sink until Unadvise is called with the cookie.
    // CONNECT_E_CANNOTCONNECT for a sink without the interface.
    virtual HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) = 0;
    // CONNECT_E_NOCONNECTION for an unknown cookie.
    virtual HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) = 0;

protected:
    ~IConnectionPoint() = default;
};

class IConnectionPointContainer : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) = 0;
    // CONNECT_E_NOCONNECTION when there is none for that interface.
    virtual HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID id, IConnectionPoint** point) = 0;

protected:
    ~IConnectionPointContainer() = default;
};

extern "C" {

// Creates a string; null for null, and when there is no memory. Freeing null does nothing.
BSTR WINAPI SysAllocString(const OLECHAR* text);
void WINAPI SysFreeString(BSTR text);
// The length in characters; 0 for null.
UINT WINAPI SysStringLen(BSTR text);

void WINAPI VariantInit(VARIANTARG* value);
// Releases what a value holds, and empties it. DISP_E_BADVARTYPE for an unknown type.
HRESULT WINAPI VariantClear(VARIANTARG* value);
// Converts `source` to a value of another type; both may be the same. DISP_E_TYPEMISMATCH when the
// value has no form in that type, DISP_E_OVERFLOW when it does not fit.
HRESULT WINAPI VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT flags,
                                 VARTYPE type);

// The type library that a file is or contains. TYPE_E_CANTLOADLIBRARY for a file without one.
HRESULT WINAPI LoadTypeLib(LPCOLESTR file, ITypeLib** library);
// A registered type library of that major version, with the same or a later minor version.
// TYPE_E_LIBNOTREGISTERED when there is none.
HRESULT WINAPI LoadRegTypeLib(REFGUID guid, WORD major, WORD minor, LCID locale,
                              ITypeLib** library);
// Add a library and its interfaces to the registry, for the machine or for the current user, and
// remove it. TYPE_E_REGISTRYACCESS when that fails, or when the library to remove is not
// registered.
HRESULT WINAPI RegisterTypeLib(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder);
HRESULT WINAPI RegisterTypeLibForUser(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder);
HRESULT WINAPI UnRegisterTypeLib(REFGUID guid, WORD major, WORD minor, LCID locale, SYSKIND system);
HRESULT WINAPI UnRegisterTypeLibForUser(REFGUID guid, WORD major, WORD minor, LCID locale,
                                        SYSKIND system);
}

#endif
