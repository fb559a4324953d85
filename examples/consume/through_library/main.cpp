// The game's own program knows its engine alone.
int EngineMain(int nArguments, char ** dArguments);

int main(int nArguments, char ** dArguments)
{
    return EngineMain(nArguments, dArguments);
}
