// The one name that the program looks up.
int GameMain(int nArguments, char ** dArguments);

extern "C" int PluginRun(int nArguments, char ** dArguments)
{
    return GameMain(nArguments, dArguments);
}
