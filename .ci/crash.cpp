// The program whose crash report is in the README.
#include "zqcore/capp.h"
#include "zqcore/clog.h"

struct Ship_s
{
    int iHull = 40;
};

int Damage(Ship_s const & Ship, int const * pShield)
{
    int iRest = Ship.iHull - 14;
    iRest -= *pShield;
    return iRest;
}

int main(int, char ** dArguments)
{
    LogSetFile(L"./", L"message.log");
    AppMiscStartup();
    Ship_s const Ship;
    return Damage(Ship, dArguments[1] ? &Ship.iHull : nullptr);
}
