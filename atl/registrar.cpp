#include "atl/registrar.h"

#include "atl/object.h"

namespace ATL {

namespace {

HRESULT result(LONG error) noexcept
{
    return error == ERROR_SUCCESS ? S_OK : AtlHresultFromWin32(error);
}

// Something that is not there need not be removed.
HRESULT removalResult(LONG error) noexcept
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? S_OK : result(error);
}

} // namespace

void CRegObject::AddReplacement(const std::string& name, const std::string& text)
{
    m_replacements.insert_or_assign(name, text);
}

HRESULT CRegObject::UpdateFromResource(UINT id, BOOL registering) noexcept
{
    const HRSRC resource = FindResourceA(nullptr, MAKEINTRESOURCEA(id), "REGISTRY");
    if (resource == nullptr) {
        return AtlHresultFromLastError();
    }
    const HGLOBAL loaded = LoadResource(nullptr, resource);
    const auto* const text = loaded == nullptr ? nullptr : static_cast<const char*>(LockResource(loaded));
    if (text == nullptr) {
        return AtlHresultFromLastError();
    }
    return UpdateFromString(std::string_view(text, SizeofResource(nullptr, resource)), registering);
}

HRESULT CRegObject::UpdateFromString(std::string_view script, BOOL registering) noexcept
{
    return AtlGuard([&]() -> HRESULT {
        std::vector<CRegRoot> roots;
        try {
            roots = AtlParseScript(AtlExpandScript(script, m_replacements));
        } catch (const CRegScriptError& error) {
            return AtlReportError(CLSID_NULL, error.text.c_str(), GUID_NULL, DISP_E_EXCEPTION);
        }
        for (CRegRoot& root : roots) {
            RedirectClassesRoot(root);
            CRegKey key(root.key, m_transaction);
            const Operation operation = registering ? &CRegObject::RegisterEntry : &CRegObject::UnregisterEntry;
            if (const HRESULT hr = RunContent(key, root.content, operation); FAILED(hr)) {
                return hr;
            }
        }
        return S_OK;
    });
}

void CRegObject::RedirectClassesRoot(CRegRoot& root) const
{
    if (m_scope != CRegistrationScope::User || root.key != HKEY_CLASSES_ROOT) {
        return;
    }
    for (const char* const name : {"Classes", "Software"}) {
        CRegEntry around{CRegEntry::Kind::NoRemoveKey, name, {}, std::move(root.content)};
        root.content.clear();
        root.content.push_back(std::move(around));
    }
    root.key = HKEY_CURRENT_USER;
}

HRESULT CRegObject::RunContent(CRegKey& parent, const std::vector<CRegEntry>& content, Operation operation)
{
    for (const CRegEntry& entry : content) {
        if (const HRESULT hr = (this->*operation)(parent, entry); FAILED(hr)) {
            return hr;
        }
    }
    return S_OK;
}

HRESULT CRegObject::RegisterEntry(CRegKey& parent, const CRegEntry& entry)
{
    using Kind = CRegEntry::Kind;
    if (entry.kind == Kind::NamedValue) {
        const CRegValue& value = *entry.value; // NOLINT(bugprone-unchecked-optional-access): a named value always has it
        return result(parent.SetValue(entry.name, value.type, value.data));
    }
    if (entry.kind == Kind::DeleteKey || entry.kind == Kind::ForceRemoveKey) {
        const HRESULT hr = removalResult(parent.RecurseDeleteKey(entry.name));
        if (FAILED(hr) || entry.kind == Kind::DeleteKey) {
            return hr;
        }
    }
    CRegKey key(m_transaction);
    LONG error = key.Create(parent, entry.name);
    if (error == ERROR_SUCCESS && entry.value) {
        error = key.SetValue("", entry.value->type, entry.value->data);
    }
    return error != ERROR_SUCCESS ? AtlHresultFromWin32(error) : RunContent(key, entry.content, &CRegObject::RegisterEntry);
}

HRESULT CRegObject::UnregisterEntry(CRegKey& parent, const CRegEntry& entry)
{
    switch (entry.kind) {
    case CRegEntry::Kind::NamedValue:
        return removalResult(parent.DeleteValue(entry.name));
    case CRegEntry::Kind::DeleteKey:
        return S_OK;
    case CRegEntry::Kind::ForceRemoveKey:
        return removalResult(parent.RecurseDeleteKey(entry.name));
    case CRegEntry::Kind::Key:
    case CRegEntry::Kind::NoRemoveKey:
        break;
    }
    {
        CRegKey key(m_transaction);
        if (const LONG error = key.Open(parent, entry.name); error != ERROR_SUCCESS) {
            return removalResult(error);
        }
        const HRESULT hr = RunContent(key, entry.content, &CRegObject::UnregisterEntry);
        if (FAILED(hr) || entry.kind == CRegEntry::Kind::NoRemoveKey || key.HasSubKeys()) {
            return hr;
        }
    }
    return removalResult(parent.DeleteSubKey(entry.name));
}

} // namespace ATL
