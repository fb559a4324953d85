// game.cpp: a program that frees a block of the engine, and prints "done".
//
// It reaches the library as it is linked: by itself, through another library, or through a plugin. The first argument
// is the plugin's file. With "deep" as the second one, the plugin's own scope is searched first.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <string>

#ifndef GAME_LOADS_PLUGIN
extern "C" int * EngineAllocate();
#endif

#ifdef GAME_HAS_SIZED_DELETE
// Free a block. Some linkers export these two of the many forms of delete from a static C++ runtime.
__attribute__((visibility("default"))) void operator delete(void * pBlock, std::size_t, std::align_val_t) noexcept
{
    std::free(pBlock);
}
__attribute__((visibility("default"))) void operator delete[](void * pBlock, std::size_t) noexcept
{
    std::free(pBlock);
}
#endif

// Allocates a block and frees it through pointers, and also deletes null. A program at a fixed address has an entry of
// its own for a function whose address it takes. Requires an operator delete that accepts null.
void UseByAddress()
{
    void * (*volatile fnNew)(std::size_t) = &::operator new;
    void (*volatile fnDelete)(void *) = &::operator delete;
    fnDelete(fnNew(16));
    fnDelete(nullptr);
}

int main([[maybe_unused]] int nArguments, [[maybe_unused]] char ** dArguments)
{
#ifdef GAME_LOADS_PLUGIN
    int const iScope = nArguments > 2 && std::strcmp(dArguments[2], "deep") == 0 ? RTLD_DEEPBIND : 0;
    void * const hPlugin = dlopen(dArguments[1], RTLD_NOW | RTLD_LOCAL | iScope);
    if (!hPlugin)
    {
        std::puts(dlerror());
        return 1;
    }
    auto const EngineAllocate = reinterpret_cast<int * (*)()>(dlsym(hPlugin, "EngineAllocate"));
#endif
#ifdef GAME_TAKES_ADDRESSES
    UseByAddress();
#endif
    std::string sText = "done";
    for (int i = 0; i < 100; ++i)
    {
        sText += '\n';   // outgrows the text object: the heap is used
    }
    delete[] EngineAllocate();
    std::printf("%.5s", sText.c_str());
    return 0;
}
