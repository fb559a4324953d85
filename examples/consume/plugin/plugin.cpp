// Runs the game and returns its exit status. It is the game's `main`, which CMakeLists.txt compiles under this name.
int RunGame(int nArguments, char ** dArguments);

// Runs the game and returns its exit status. The program looks up only this name.
extern "C" int PluginRun(int nArguments, char ** dArguments)
{
    return RunGame(nArguments, dArguments);
}
