// The template layer that the COM side of the server stands on: one header for all of it.
//
// What it offers, and where its contracts stand:
//   base.h        CAtlException, AtlGuard, CComCriticalSection, CHandle, CComBSTR, CComVariant, CComPtr
//   object.h      CComObjectRootEx, COM map, CComObject, CComClassFactory, CComCoClass, AtlReportError
//   dispatch.h    IDispatchImpl: a dual interface through the registered type library
//   connection.h  IConnectionPointContainerImpl, IConnectionPointImpl, connection point map
//   regkey.h, regscript.h, registrar.h, typelib.h, categories.h    registration
//   module.h      CAtlExeModuleT: lock count, command line, class objects, message loop
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
//         DECLARE_REGISTRY_RESOURCEID(102)                  // static UpdateRegistry(BOOL): the class's script
//         static void ObjectMain(bool starting);            // hides the default, which does nothing
//         BEGIN_COM_MAP(CThing)
//             COM_INTERFACE_ENTRY(IThing)
//             COM_INTERFACE_ENTRY2(IDispatch, IThing)
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
// It is created as CComObject<CThing>, by COM through its class factory or by CComObject<CThing>::CreateInstance (no reference
// yet). At the last Release: FinalRelease, the destructors of CThing and its bases, then the module's Unlock. A failing method
// returns Error("text", IID_IThing, hr), which sets the COM error info and returns hr. Firing: for (int i = 0; i <
// m_vec.GetSize(); ++i) if (IUnknown* sink = m_vec.GetAt(i)) ... - a sink is kept as the pointer that its query for the event
// interface gave, so that static_cast<IDispatch*>(sink) is what to invoke. Hold a reference during the call and read size and
// slot again afterwards.
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
//     int result = _AtlModule.WinMain(showCommand);         // exceptions of RunMessageLoop come out of it
//
// Unit tests of a class need a module for its lock count: derive from CAtlModule and count in Lock and Unlock.
#pragma once

#include "atl/base.h"
#include "atl/connection.h"
#include "atl/dispatch.h"
#include "atl/module.h"
#include "atl/object.h"

using namespace ATL;
