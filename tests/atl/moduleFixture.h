// A module with two classes that record their calls.
#pragma once

#include "tests/atl/sampleObject.h"

inline const CLSID CLSID_First = {0x11111111, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
inline const CLSID CLSID_Second = {0x22222222, 0, 0, {0, 0, 0, 0, 0, 0, 0, 2}};
inline const GUID CATEGORY = {0xAAAAAAAA, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};

// Follows the record of what is done for the user only.
std::string scopeText();

template <int number>
class CClass : public CSampleObject
{
public:
    static void ObjectMain(bool starting) { s_events.push_back(std::format("ObjectMain {}: {:d}", number, starting)); }
    static HRESULT UpdateRegistry(BOOL registering) noexcept
    {
        s_events.push_back(std::format("UpdateRegistry {}: {}{}", number, registering, scopeText()));
        return s_updateResult;
    }
    // The first class has a category.
    static const ATL_CATMAP_ENTRY* GetCategoryMap()
    {
        using Type = ATL_CATMAP_ENTRY::Type;
        static const ATL_CATMAP_ENTRY MAP[] = {{Type::Required, &CATEGORY}, {Type::Required, nullptr}};
        return number == 1 ? MAP : nullptr;
    }

    static inline HRESULT s_updateResult = S_OK;
};

inline constexpr ATL_OBJMAP_ENTRY OBJECT_MAP[] = {OBJECT_ENTRY(CLSID_First, CClass<1>) OBJECT_ENTRY(CLSID_Second, CClass<2>)};

class CTestModule final : public CAtlExeModuleT<CTestModule>
{
public:
    CTestModule()
        : CAtlExeModuleT(OBJECT_MAP)
    {
    }
    static const char* GetAppIdT() noexcept { return "{9E27B6D1}"; }
    static HRESULT UpdateRegistryAppId(BOOL registering) noexcept
    {
        s_events.push_back(std::format("AppId: {}{}", registering, scopeText()));
        return s_appIdResult;
    }

    bool isForUser() const noexcept { return m_registrationScope == CRegistrationScope::User; }

    static inline HRESULT s_appIdResult = S_OK;
    // Runs in the message loop; by default a client comes and goes.
    std::function<void()> m_loop = [this] {
        Lock();
        Unlock();
    };

protected:
    void RunMessageLoop() override
    {
        s_events.push_back("loop");
        m_loop();
        MSG message;
        while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        }
    }
};

inline std::string scopeText()
{
    return static_cast<CTestModule*>(_pAtlModule)->isForUser() ? " for the user" : "";
}
