// The template layer under the COM side of the server: one header for its classes and its module.
//
// The contracts are in its parts:
//   base.h        CAtlException, AtlGuard, CComCriticalSection, CHandle, CComBSTR, CComVariant, CComPtr
//   object.h      CComObjectRootEx, COM map, CComObject, CComClassFactory, CComCoClass
//   dispatch.h    IDispatchImpl: a dual interface through the registered type library
//   connection.h  IConnectionPointContainerImpl, IConnectionPointImpl, connection point map
//   enumerator.h  CComEnum
//   regkey.h, regscript.h, registrar.h, typelib.h, categories.h    registration
//   module.h      CAtlExeModuleT: lock count, command line, class objects, message loop
//
// The names are well known. Where the layer does less than they suggest, or something else:
//   - The single-threaded apartment is the only thread model.
//   - There is no aggregation, and a COM map has plain interfaces only: no tear-offs, no chained maps.
//   - The module is locked before an object is constructed and unlocked after the object has been freed.
//   - The object map is a table that the module's constructor takes.
//   - The last unlock ends the server at once: the monitor thread does not wait for another client.
//   - The module's destructor ends the monitor thread. WM_QUIT is posted again while the main thread's queue is full.
//   - Type information is kept until the process ends.
//   - The cookie of a sink is its position, and an enumerator shows the connections that existed when it was made.
//   - Error has no default for its interface and its HRESULT. Like the registrar, it takes text in the ANSI code page only.
//   - The registrar knows the value types s, d and b, reads a whole script before it touches the first key, and keeps a key that
//     has subkeys which are not in the script.
//   - CComBSTR, CComVariant, CComPtr, CHandle and CRegKey have the operations that the server needs. Their constructors from raw
//     values are explicit (except CComPtr's), and & frees what was held before.
//
// A creatable class:
//
//     class CThing : public CComObjectRootEx<CComSingleThreadModel>,
//                    public CComCoClass<CThing, &CLSID_Thing>,
//                    public ISupportErrorInfo,
//                    public IConnectionPointContainerImpl<CThing>,
//                    public IConnectionPointImpl<CThing, &DIID__IThingEvents>,
//                    public IDispatchImpl<IThing, &IID_IThing, &LIBID_ThingLib, 1, 0>
//     {
//     public:
//         DECLARE_REGISTRY_RESOURCEID(102)                  // the number of the class's script
//         static void ObjectMain(bool starting);            // hides the default, which does nothing
//         BEGIN_COM_MAP(CThing)
//             COM_INTERFACE_ENTRY(IThing)
//             COM_INTERFACE_ENTRY(IDispatch)
//             COM_INTERFACE_ENTRY(ISupportErrorInfo)
//             COM_INTERFACE_ENTRY(IConnectionPointContainer)
//         END_COM_MAP()
//         BEGIN_CONNECTION_POINT_MAP(CThing)
//             CONNECTION_POINT_ENTRY(DIID__IThingEvents)
//         END_CONNECTION_POINT_MAP()
//         HRESULT FinalConstruct();                         // hide the defaults, which do nothing
//         void FinalRelease();
//         ...
//     };
//
// It is created as CComObject<CThing>: by COM through its class factory, or by CComObject<CThing>::CreateInstance, which leaves
// the first reference to the caller. The last Release calls FinalRelease, then the destructors of CThing and its bases, then the
// module's Unlock. A failing method returns Error("text", IID_IThing, hr), which sets the COM error info and returns hr.
//
// Firing an event:
//
//     for (int i = 0, n = m_vec.GetSize(); i < n; ++i) {
//         const CComPtr<IUnknown> sink(m_vec.GetAt(i));     // keeps the sink during the call; null for an empty slot
//         if (sink) { static_cast<IDispatch*>(sink.p)->Invoke(...); }
//     }
//
// The executable:
//
//     constexpr ATL_OBJMAP_ENTRY s_objectMap[] = {OBJECT_ENTRY(CLSID_Thing, CThing)};
//
//     class CThingModule : public CAtlExeModuleT<CThingModule>
//     {
//     public:
//         CThingModule() : CAtlExeModuleT(s_objectMap) {}
//         DECLARE_REGISTRY_APPID_RESOURCEID(101, "{...}")
//     protected:
//         void RunMessageLoop() override;
//     };
//     CThingModule _AtlModule;                              // ObjectMain(true) now, ObjectMain(false) at static destruction
//     int result = _AtlModule.WinMain(showCommand);
//
// The unit tests of a class need a module too: one derived from CAtlModule that counts in Lock and Unlock is enough.
#pragma once

#include "atl/base.h"
#include "atl/connection.h"
#include "atl/dispatch.h"
#include "atl/module.h"
#include "atl/object.h"

using namespace ATL;
