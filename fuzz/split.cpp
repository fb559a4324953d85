// split.cpp: a program with the kinds of types and variables that zqsymbols shows.
//
// It is built with -gsplit-dwarf and never runs: zqsymbols_fuzz damages its debug information. SPLIT is the name of the
// function, one for each unit.
namespace fleet
{
    enum Cargo_e : short
    {
        CARGO_NONE,
        CARGO_GRAIN = 7
    };

    struct Ship_t
    {
        int nCrew;
        char szName[8];
    };

    union Load_u
    {
        float fTons;
        unsigned nCrates;
    };

    template <typename T, int N>
    struct List_T
    {
        T dItems[N];
        List_T * pNext;
        unsigned nUsed : 5;
    };

    struct Galley_t : Ship_t
    {
        List_T<Cargo_e, 3> Cargo;
        Load_u Load;
        bool (*fnSail)(Galley_t & Galley);
    };
}

static inline __attribute__((always_inline)) int Crew(fleet::Ship_t const & Ship, int nMore)
{
    int const nAll = Ship.nCrew + nMore;
    return nAll * nAll;
}

int SPLIT(fleet::Galley_t & Galley, int nShots)
{
    fleet::Galley_t Before;   // not copied whole: there is no memcpy
    Before.nCrew = Galley.nCrew;
    Before.fnSail = Galley.fnSail;
    auto const Hit = [&Before, nShots](int nHoles) { return Crew(Before, nHoles - nShots); };
    for (fleet::List_T<fleet::Cargo_e, 3> * pList = &Galley.Cargo; pList; pList = pList->pNext)
    {
        Before.nCrew += pList->dItems[0] + Hit(pList->nUsed);
    }
    return Before.fnSail(Galley) ? Crew(Galley, nShots) : Before.nCrew;
}
