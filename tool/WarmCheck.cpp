// What "check" says about the archive of class data.
#include "tool/Warm.h"

#include "support/logger.h"

#include <windows.h>

#include <aclapi.h>
#include <nlohmann/json.hpp>
#include <sddl.h>

#include <array>
#include <format>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>

namespace {

const char* const AREA = "class data";
const std::string NAMES_ARCHIVE = "-XX:SharedArchiveFile=";

// A file with its size and the time of its last change; without both when it is not there.
std::string describeFile(const std::string& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data) == FALSE) {
        return path;
    }
    return std::format("{}|{:08x}{:08x}|{:08x}{:08x}", path, data.nFileSizeHigh, data.nFileSizeLow,
                       data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
}

std::optional<nlohmann::json> readRecord(const std::string& archive)
{
    std::ifstream file(classDataRecordFile(archive));
    nlohmann::json record = nlohmann::json::parse(file, nullptr, false);
    const bool isComplete = record.is_object() && record.contains("library") && record.contains("classPath") &&
                            record.contains("files") && record["files"].is_array();
    return isComplete ? std::optional(record) : std::nullopt;
}

// "" when the record fits what is there now.
std::string difference(const nlohmann::json& record, const ClassDataRecord& now)
{
    if (lstrcmpiA(fromUtf8(record["library"].get<std::string>()).c_str(), now.library.c_str()) != 0) {
        return "was made for another runtime: " + fromUtf8(record["library"].get<std::string>());
    }
    if (fromUtf8(record["classPath"].get<std::string>()) != now.classPath) {
        return "was made for another class path: " + fromUtf8(record["classPath"].get<std::string>());
    }
    for (size_t index = 0; index < now.files.size(); ++index) {
        if (index >= record["files"].size() || fromUtf8(record["files"][index].get<std::string>()) != now.files[index]) {
            return "does not fit any more: since it was made there is another " +
                   now.files[index].substr(0, now.files[index].find('|'));
        }
    }
    return "";
}

} // namespace

std::string classDataRecordFile(const std::string& archive)
{
    return archive + ".json";
}

ClassDataRecord describeClassData(const std::string& archive, const std::string& library, const std::string& classPath)
{
    ClassDataRecord record = {library, classPath, {describeFile(archive), describeFile(library)}, 0};
    std::istringstream elements(classPath);
    for (std::string element; std::getline(elements, element, ';');) {
        record.files.push_back(describeFile(element));
    }
    return record;
}

bool isWritableForAll(const std::string& folder)
{
    constexpr DWORD ADDING_OR_REPLACING =
        FILE_ADD_FILE | FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;
    // World, authenticated users, interactive users, users.
    constexpr std::array<const char*, 4> ALL = {"S-1-1-0", "S-1-5-11", "S-1-5-4", "S-1-5-32-545"};
    ACL* list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoA(folder.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                              &descriptor) != ERROR_SUCCESS) {
        return false; // making the archive there will tell
    }
    const std::unique_ptr<void, decltype(&LocalFree)> owner(descriptor, LocalFree);
    if (list == nullptr) {
        return true;
    }
    for (DWORD index = 0; index < list->AceCount; ++index) {
        ACCESS_ALLOWED_ACE* entry = nullptr;
        char* text = nullptr;
        if (GetAce(list, index, reinterpret_cast<void**>(&entry)) == FALSE || entry->Header.AceType != ACCESS_ALLOWED_ACE_TYPE ||
            (entry->Header.AceFlags & INHERIT_ONLY_ACE) != 0 || (entry->Mask & ADDING_OR_REPLACING) == 0 ||
            ConvertSidToStringSidA(&entry->SidStart, &text) == FALSE) {
            continue;
        }
        const std::unique_ptr<void, decltype(&LocalFree)> textOwner(text, LocalFree);
        for (const char* const group : ALL) {
            if (lstrcmpA(text, group) == 0) {
                return true;
            }
        }
    }
    return false;
}

std::string classDataArchive(const std::vector<MachineOption>& options)
{
    std::string archive;
    for (const MachineOption& option : options) {
        if (option.text.starts_with(NAMES_ARCHIVE)) {
            archive = option.text.substr(NAMES_ARCHIVE.size());
        }
    }
    return archive;
}

CFindings checkClassData(const std::vector<MachineOption>& options, const std::string& library, const std::string& classPath)
{
    CFindings findings;
    const std::string archive = classDataArchive(options);
    if (archive.empty()) {
        findings.good(AREA, "archive", "no option names one; KESTAtool warm would make one, for a faster start");
        return findings;
    }
    const std::optional<nlohmann::json> record = readRecord(archive);
    if (GetFileAttributesA(archive.c_str()) == INVALID_FILE_ATTRIBUTES) {
        findings.fault(AREA, "archive", "is not there, so that Java starts without any class data: " + archive,
                       MAKE_CLASS_DATA_AGAIN);
    } else if (!record) {
        findings.note(AREA, "archive", "was not made by this program, or its record is missing: " + archive);
    } else {
        const std::string stale = difference(*record, describeClassData(archive, library, classPath));
        findings.check(stale.empty(), AREA, "archive", archive, stale + ", and Java ignores " + archive, MAKE_CLASS_DATA_AGAIN);
    }
    const std::string folder = fromPath(toPath(archive).parent_path());
    if (isWritableForAll(folder)) {
        findings.fault(AREA, "folder", "every user can replace the archive in " + folder,
                       "KESTAtool warm --remove, and install the program where only administrators can write");
    }
    return findings;
}
