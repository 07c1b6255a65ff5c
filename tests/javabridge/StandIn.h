// A private runtime folder whose jvm.dll is a stand-in, broken or missing, and a record of the calls of Windows.
#pragma once

#include "tests/javabridge/BridgeFixture.h"
#include "tests/support/ImportHook.h"

// While it is alive, opening registry keys and querying paths is written to the log: "RegOpenKeyExA(PATH, ACCESS)",
// "GetCurrentDirectoryA(SIZE)", "GetModuleFileNameA(MODULE, SIZE)".
class NotedSystemCalls
{
    using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
    using FolderHook = ImportHook<decltype(&GetCurrentDirectoryA)>;
    using NameHook = ImportHook<decltype(&GetModuleFileNameA)>;

    static void note(const std::string& call) { OutputDebugStringA((call + ")\n").c_str()); }
    static LSTATUS WINAPI open(HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key)
    {
        char hexadecimal[9] = "";
        std::snprintf(hexadecimal, sizeof hexadecimal, "%lx", access);
        note(std::string(root == HKEY_LOCAL_MACHINE && options == 0 ? "RegOpenKeyExA("
                                                                    : "RegOpenKeyExA(another root or option, ") +
             path + ", " + hexadecimal);
        return OpenHook::s_original(root, path, options, access, key);
    }
    static DWORD WINAPI folder(DWORD size, LPSTR buffer)
    {
        note("GetCurrentDirectoryA(" + std::to_string(size));
        return FolderHook::s_original(size, buffer);
    }
    static DWORD WINAPI name(HMODULE module, LPSTR buffer, DWORD size)
    {
        note((module == nullptr ? "GetModuleFileNameA(executable, " : "GetModuleFileNameA(module, ") + std::to_string(size));
        return NameHook::s_original(module, buffer, size);
    }

    OpenHook m_open{"RegOpenKeyExA", open};
    FolderHook m_folder{"GetCurrentDirectoryA", folder};
    NameHook m_name{"GetModuleFileNameA", name};
};

// What the registry reader logs about a key that it opens.
inline std::string opened(const std::string& path, const std::string& access)
{
    return "FINE -> registry: CRegistry  CRegistry " + path + "\nRegOpenKeyExA(" + path + ", " + access +
           ")\nTRACE registry: CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true\n";
}
const std::string NOT_OPENED = "registry: CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false";

class RuntimeFolder
{
public:
    RuntimeFolder() { std::filesystem::create_directories(m_folder.path("bin\\server")); }

    // Puts the stand-in ("jvm.dll", "nojvm.dll") in place.
    void install(const std::string& standIn)
    {
        std::filesystem::copy_file(std::filesystem::path(fixtures::modulePath()).parent_path() / standIn, library(),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    void installBytes(const std::string& bytes) { std::ofstream(library(), std::ios::binary) << bytes; }
    void order(const std::string& orders) { std::ofstream(m_folder.path("bin\\server\\jvm.orders")) << orders; }

    std::string bin() const { return m_folder.path("bin"); }
    std::string library() const { return m_folder.path("bin\\server\\jvm.dll"); }
    // The stand-in's record since the last call.
    Strings takeRecord() const
    {
        const std::string path = m_folder.path("bin\\server\\jvm.record");
        std::string text = fixtures::readFile(path);
        std::filesystem::remove(path);
        std::erase(text, '\r');
        return fixtures::splitLines(text);
    }
    // The options in that record.
    Strings takeOptions() const
    {
        Strings options;
        for (const std::string& line : takeRecord()) {
            if (line.starts_with("option ")) {
                options.push_back(line.substr(7));
            }
        }
        return options;
    }
    // The log's line about the folders used while loading.
    std::string usedFolders() const
    {
        return "FINE Used " + library() + "\\..\\..\\ as current folder while loading JVM, using " + currentFolder() +
               " again.\n";
    }

    // The program's path with another extension.
    static std::string besideExecutable(const std::string& extension)
    {
        return std::filesystem::path(fixtures::modulePath()).replace_extension(extension).string();
    }
    static std::string currentFolder() { return std::filesystem::current_path().string(); }

private:
    // A machine's library stays loaded to the end of the process, and keeps its folder.
    fixtures::TemporaryFolder m_folder{fixtures::TemporaryFolder::Removal::MayFail};
};

// A machine started from the stand-in, with a private registry and Logger.
class MachineTest : public testing::Test
{
protected:
    MachineTest()
    {
        world.setPreference("loglevel", LOGLEVEL_TRACE);
        world.setPreference("oldlogfileage", 77);
        world.setPreference("splitlogfilesize", 5);
        world.setPreference("logpath", world.folder());
        world.start();
        runtime.install("jvm.dll");
    }
    // The options before and after those that a test sets.
    const Strings first = {"-Djava.class.path=C:\\basis.jar"};
    Strings last(int level = LOGLEVEL_TRACE) const
    {
        return {"-Dcom.orvane.qmrt.logpath=" + Logger::instance()->logDirectory(),
                "-Dcom.orvane.qmrt.loglevel=" + std::to_string(level), "-Dcom.orvane.qmrt.oldlogfileage=77",
                "-Dcom.orvane.qmrt.splitlogfilesize=5"};
    }
    const Strings background = {"-Dsun.awt.noerasebackground=true"};

    int create(const std::string& version = "1.8.0_151")
    {
        log.take();
        return client.createJVM({version, runtime.library()});
    }
    // Creates a machine and returns its options.
    Strings createdWith()
    {
        EXPECT_EQ(create(), 0);
        return runtime.takeOptions();
    }

    fixtures::LoggerWorld world;
    RuntimeFolder runtime;
    CBridgeClient client{"C:\\basis.jar"};
    ClientLog log;
};
