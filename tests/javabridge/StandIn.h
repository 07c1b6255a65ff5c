// A runtime folder of the test's own, with a jvm.dll that is a stand-in, broken, or not there.
#pragma once

#include "tests/javabridge/BridgeFixture.h"

class RuntimeFolder
{
public:
    RuntimeFolder() { std::filesystem::create_directories(m_folder.path("bin\\server")); }

    // Puts the stand-in ("jvm.dll", "nojvm.dll") in place.
    void install(const std::string& standIn)
    {
        std::filesystem::copy_file(std::filesystem::path(besideExecutable("")).parent_path() / standIn, library());
    }
    void installBytes(const std::string& bytes) { std::ofstream(library(), std::ios::binary) << bytes; }
    void order(const std::string& orders) { std::ofstream(m_folder.path("bin\\server\\jvm.orders")) << orders; }

    std::string bin() const { return m_folder.path("bin"); }
    std::string library() const { return m_folder.path("bin\\server\\jvm.dll"); }
    // What the stand-in wrote down.
    Strings record() const
    {
        std::string text = fixtures::readFile(m_folder.path("bin\\server\\jvm.record"));
        std::erase(text, '\r');
        return fixtures::splitLines(text);
    }
    Strings options() const
    {
        Strings options;
        for (const std::string& line : record()) {
            if (line.starts_with("option ")) {
                options.push_back(line.substr(7));
            }
        }
        return options;
    }

    // The program's path with another extension.
    static std::string besideExecutable(const std::string& extension)
    {
        char path[MAX_PATH + 1] = "";
        GetModuleFileNameA(nullptr, path, sizeof path);
        return std::filesystem::path(path).replace_extension(extension).string();
    }
    static std::string currentFolder()
    {
        char path[MAX_PATH + 1] = "";
        GetCurrentDirectoryA(sizeof path, path);
        return path;
    }

private:
    fixtures::TemporaryFolder m_folder;
};

// A machine started from the stand-in, with a registry and a Logger of the test's own.
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
    // What precedes the options of the rest of the system; what follows them.
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
        log.takeStatements();
        return client.createJVM({version, runtime.library()});
    }

    fixtures::LoggerWorld world;
    RuntimeFolder runtime;
    CBridgeClient client{"C:\\basis.jar"};
    ClientLog log;
};
