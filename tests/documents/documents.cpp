// documents.cpp: the programs of the documents, which the build cuts out (tests/examples.cmake).
//
// documents NAME runs one of them.
#include <cstdio>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "documents/blocks.inl"

namespace
{
    // Runs a body as a part of a game: between the start of its modules and their end, over the media root "media".
    // Prints the log lines of the body. Returns 0, or 1 if a module fails to start.
    int RunBody(void (*fnBody)())
    {
        LogSetFile(L"logs/", L"message.log");
        AppMiscStartup();
        SetPQXMediaPath("media");
        for (Module_c * const pModule : std::initializer_list<Module_c *>{ ModuleTimer_c::Get(), ModuleLog_c::Get(),
                 ModuleProfiler_c::Get(), ModuleRandom_c::Get(), ModuleCryptRandom_c::Get(), ModuleSinCos_c::Get(),
                 ModulePerlin_c::Get(), ModuleFile_c::Get(), ModuleSerialize_c::Get() })
        {
            Module_c::Register(pModule);
        }
        bool const bStarted = Module_c::InitializeAllModules();
        LogAddCallback([](char const * szLine) { std::puts(szLine); });
        fnBody();
        LogDone();
        Module_c::ShutdownAllModules();
        AppMiscShutdown();
        return bStarted ? 0 : 1;
    }

    struct Program_s
    {
        std::string_view sName;
        int (*fnMain)();
    };

    constexpr Program_s PROGRAMS[] = {
#include "documents/entries.inl"
    };
}

int main(int nArguments, char ** dArguments)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);   // in the order of standard error
    for (Program_s const & Program : PROGRAMS)
    {
        if (nArguments == 2 && Program.sName == dArguments[1])
        {
            return Program.fnMain();
        }
    }
    return DOCUMENTS_NO_PROGRAM;
}
