int GameMain(int nArguments, char ** dArguments);

// The one name that the program looks up.
extern "C" int PluginRun(int nArguments, char ** dArguments)
{
    return GameMain(nArguments, dArguments);
}
