// The game's own program knows only its engine, which uses the library.
int EngineMain(int nArguments, char ** dArguments);

int main(int nArguments, char ** dArguments)
{
    return EngineMain(nArguments, dArguments);
}
