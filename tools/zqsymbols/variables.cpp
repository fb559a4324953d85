#include "tools/zqsymbols/variables.h"

#include "tools/zqsymbols/places.h"

#include <cstring>
#include <dwarf.h>

namespace zqsymbols
{
    namespace
    {
        class Lister_c
        {
        public:
            Lister_c(Process_c & Process, Frame_t const & Frame, Unit_t const & Unit, Dwarf_Die * pFunction)
                : m_Process(Process)
                , m_Surroundings(SurroundingsOf(Process, Frame, Unit, pFunction, m_EntryValues))
                , m_nAddress(Frame.GetInside() - Unit.nBias)
            {}

            void List(Dwarf_Die * pScope, Types_c & Types, std::vector<Variable_t> & dVariables)
            {
                Dwarf_Die Child;
                bool bMore = dwarf_child(pScope, &Child) == 0;
                for (; bMore; bMore = dwarf_siblingof(&Child, &Child) == 0)
                {
                    int const nTag = dwarf_tag(&Child);
                    bool const bParameter = nTag == DW_TAG_formal_parameter;
                    bool const bLocal = nTag == DW_TAG_variable && !IsHidden(&Child);
                    char const * const szName = bParameter || bLocal ? dwarf_diename(&Child) : nullptr;
                    if (szName != nullptr)
                    {
                        Add(&Child, szName, bParameter ? plat::SYMBOL_PARAMETER : plat::SYMBOL_LOCAL, Types,
                            dVariables);
                    }
                }
                ++m_iScope;
            }

        private:
            // Returns whether the compiler generated a variable, or it is only declared here. A generated one with a
            // name of the source is not hidden: a lambda captured it.
            static bool IsHidden(Dwarf_Die * pDie)
            {
                char const * const szName = dwarf_diename(pDie);
                bool const bReserved = szName == nullptr || std::strncmp(szName, "__", 2) == 0;
                return (bReserved && dwarf_hasattr_integrate(pDie, DW_AT_artificial) != 0)
                       || dwarf_hasattr(pDie, DW_AT_declaration) != 0;
            }

            void Add(Dwarf_Die * pDie, char const * szName, plat::SymbolKind_e eKind, Types_c & Types,
                std::vector<Variable_t> & dVariables)
            {
                Place_t const Place = Locate(m_Process, m_Surroundings, pDie, DW_AT_location, m_nAddress);
                plat::SymbolPlace_e const ePlace = Place.ePlace == PLACE_ADDRESS    ? plat::PLACE_MEMORY
                                                   : Place.ePlace == PLACE_REGISTER ? plat::PLACE_REGISTER
                                                                                    : plat::PLACE_NONE;
                std::uint64_t const nAddress = ePlace == plat::PLACE_MEMORY ? Place.nValue : 0;
                std::optional<std::uint64_t> const nRegister =
                    Place.ePlace == PLACE_REGISTER ? ValueOf(Place, m_Surroundings.Registers) : std::nullopt;
                dVariables.push_back(
                    { szName, eKind, ePlace, nAddress, Types.Add(pDie), Place, nRegister, *pDie, m_iScope });
            }

            Process_c & m_Process;
            EntryValues_t m_EntryValues;
            Surroundings_t m_Surroundings;
            Dwarf_Addr m_nAddress;
            std::size_t m_iScope = 0;
        };
    }

    std::vector<Variable_t> Variables_c::VariablesOf(Frame_t const & Frame, Types_c & Types)
    {
        std::vector<Variable_t> dVariables;
        std::optional<Unit_t> Unit = m_Process.UnitAt(Frame.GetInside());
        std::vector<Dwarf_Die> dScopes = Unit ? m_Process.ScopesAt(*Unit, Frame.GetInside()) : std::vector<Dwarf_Die>();
        if (!dScopes.empty())
        {
            Lister_c Lister(m_Process, Frame, *Unit, &dScopes.front());
            for (Dwarf_Die & Scope : dScopes)
            {
                Lister.List(&Scope, Types, dVariables);
            }
        }
        return dVariables;
    }
}
