// Each input of the corpora once more, without an engine. A new finding belongs into its target's folder.
#include "tests/fuzz/Target.h"
#include "tests/process/Settings.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

std::string s_replaying;

// A fault of the product ends this process: says first with which input.
LONG CALLBACK tellInput(EXCEPTION_POINTERS* pointers)
{
    std::fprintf(stderr, "exception %08lx; to see it again: %s\n", pointers->ExceptionRecord->ExceptionCode, s_replaying.c_str());
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), pointers->ExceptionRecord->ExceptionCode);
    return EXCEPTION_CONTINUE_SEARCH;
}

std::vector<std::uint8_t> contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void replay(const char* name)
{
    const fuzz::STarget* const target = fuzz::findTarget(name);
    ASSERT_NE(target, nullptr);
    const char* const corpora = std::getenv("KESTA_FUZZ_CORPORA");
    ASSERT_NE(corpora, nullptr) << "run it with ctest";
    SetUnhandledExceptionFilter(tellInput);
    int inputs = 0;
    const std::string folder = std::string(corpora) + "/" + name;
    for (const auto& entry : std::filesystem::directory_iterator(fixtures::windowsPath(folder))) {
        s_replaying =
            std::string("./toolbox tools/fuzz --replay ") + name + " " + folder + "/" + entry.path().filename().string();
        const std::vector<std::uint8_t> input = contentOf(entry.path());
        try {
            fuzz::run(*target, input);
        } catch (const fuzz::SBroken& broken) {
            ADD_FAILURE() << broken.what() << "\nto see it again: " << s_replaying;
        }
        ++inputs;
    }
    EXPECT_GT(inputs, 0) << "the corpus is empty";
}

} // namespace

TEST(FuzzReplayTest, RegistrationScripts)
{
    replay("registrationScript");
}

TEST(FuzzReplayTest, CommandLines)
{
    replay("commandLine");
}

TEST(FuzzReplayTest, RegistrySettings)
{
    replay("registrySettings");
}

TEST(FuzzReplayTest, LibraryHeads)
{
    replay("libraryHead");
}

TEST(FuzzReplayTest, VersionResources)
{
    replay("versionResource");
}

TEST(FuzzReplayTest, JavaTexts)
{
    replay("javaText");
}
