#include "atl/enumerator.h"

#include <algorithm>

namespace ATL {

namespace {

// All enumerators. Never destroyed: an enumerator may outlive static destruction.
std::vector<CComEnumBase*>& s_enumerators = *new std::vector<CComEnumBase*>;

} // namespace

CComEnumBase::CComEnumBase()
{
    s_enumerators.push_back(this);
}

CComEnumBase::~CComEnumBase()
{
    std::erase(s_enumerators, this);
}

void AtlDisconnectEnumerators() noexcept
{
    AtlGuard([] {
        // Holds all of them first: disconnecting one may end others.
        std::vector<CComPtr<IUnknown>> enumerators;
        enumerators.reserve(s_enumerators.size());
        for (CComEnumBase* const enumerator : s_enumerators) {
            enumerators.emplace_back(enumerator->Identity());
        }
        for (IUnknown* const enumerator : enumerators) {
            CoDisconnectObject(enumerator, 0);
        }
        return S_OK;
    });
}

} // namespace ATL
