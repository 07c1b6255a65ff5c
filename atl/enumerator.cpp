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
    // All are held until all are disconnected: the end of one releases what its list owns, and meanwhile COM may handle calls.
    for (CComEnumBase* const enumerator : s_enumerators) {
        enumerator->Identity()->AddRef();
    }
    for (CComEnumBase* const enumerator : s_enumerators) {
        CoDisconnectObject(enumerator->Identity(), 0);
    }
    // From the end, because those that nobody else holds leave the list.
    for (size_t left = s_enumerators.size(); left > 0; --left) {
        s_enumerators[left - 1]->Identity()->Release();
    }
}

} // namespace ATL
