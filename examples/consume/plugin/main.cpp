// A program without the library loads a plugin that has it.
#include <cstdio>
#include <dlfcn.h>

int main(int nArguments, char ** dArguments)
{
    void * const hPlugin = dlopen(ZQ_PLUGIN, RTLD_NOW);
    void * const pRun = hPlugin ? dlsym(hPlugin, "PluginRun") : nullptr;
    if (!pRun)
    {
        std::fprintf(stderr, "game: %s\n", dlerror());
        return 2;
    }
    return reinterpret_cast<int (*)(int, char **)>(pRun)(nArguments, dArguments);
}
