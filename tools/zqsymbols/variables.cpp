#include "tools/zqsymbols/variables.h"

#include "tools/zqsymbols/expression.h"

#include <dwarf.h>

namespace zqsymbols
{
    namespace
    {
        class Lister_c
        {
        public:
            Lister_c(Process_c & Process, Frame_t const & Frame, Unit_t & Unit)
                : m_Process(Process)
                , m_Surroundings{ Frame.Registers, Unit.nBias, Frame.nCfa }
                , m_nAddress(Frame.GetInside() - Unit.nBias)
            {}

            void SetFunction(Dwarf_Die * pFunction)
            {
                Place_t const Place = Locate(pFunction, DW_AT_frame_base);
                bool const bRegister = Place.ePlace == PLACE_REGISTER && Place.nValue < plat::SYMBOL_REGISTERS;
                if (bRegister || Place.ePlace == PLACE_ADDRESS)
                {
                    m_Surroundings.nFrameBase =
                        bRegister ? m_Surroundings.Registers.dValues[Place.nValue] : Place.nValue;
                }
            }

            void List(Dwarf_Die * pScope, Types_c & Types, std::vector<Variable_t> & dVariables)
            {
                Dwarf_Die Child;
                if (dwarf_child(pScope, &Child) != 0)
                {
                    return;
                }
                do
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
                while (dwarf_siblingof(&Child, &Child) == 0);
            }

        private:
            // Returns whether the compiler generated a variable, or it is only declared here.
            static bool IsHidden(Dwarf_Die * pDie)
            {
                return dwarf_hasattr_integrate(pDie, DW_AT_artificial) != 0
                       || dwarf_hasattr(pDie, DW_AT_declaration) != 0;
            }

            void Add(Dwarf_Die * pDie, char const * szName, plat::SymbolKind_e eKind, Types_c & Types,
                std::vector<Variable_t> & dVariables)
            {
                Place_t const Place = Locate(pDie, DW_AT_location);
                plat::SymbolPlace_e const ePlace = Place.ePlace == PLACE_ADDRESS    ? plat::PLACE_MEMORY
                                                   : Place.ePlace == PLACE_REGISTER ? plat::PLACE_REGISTER
                                                                                    : plat::PLACE_NONE;
                std::uint64_t const nAddress = ePlace == plat::PLACE_MEMORY ? Place.nValue : 0;
                dVariables.push_back({ szName, eKind, ePlace, nAddress, Types.Add(pDie) });
            }

            Place_t Locate(Dwarf_Die * pDie, unsigned nAttribute)
            {
                Dwarf_Attribute Attribute;
                Dwarf_Op * pOperations = nullptr;
                std::size_t nOperations = 0;
                if (dwarf_attr_integrate(pDie, nAttribute, &Attribute) == nullptr
                    || dwarf_getlocation_addr(&Attribute, m_nAddress, &pOperations, &nOperations, 1) != 1)
                {
                    return {};
                }
                Dwarf_Attribute Indirect;
                Dwarf_Addr nStatic = 0;
                if (nOperations == 1 && pOperations->atom == DW_OP_addrx
                    && dwarf_getlocation_attr(&Attribute, pOperations, &Indirect) == 0
                    && dwarf_formaddr(&Indirect, &nStatic) == 0)
                {
                    return { PLACE_ADDRESS, nStatic + m_Surroundings.nBias };
                }
                return Evaluate(m_Process, m_Surroundings, { pOperations, nOperations });
            }

            Process_c & m_Process;
            Surroundings_t m_Surroundings;
            Dwarf_Addr m_nAddress;
        };
    }

    std::vector<Variable_t> Variables_c::Of(Frame_t const & Frame, Types_c & Types)
    {
        std::vector<Variable_t> dVariables;
        std::optional<Unit_t> Unit = m_Process.UnitAt(Frame.GetInside());
        std::vector<Dwarf_Die> dScopes = Unit ? m_Process.ScopesAt(*Unit, Frame.GetInside()) : std::vector<Dwarf_Die>();
        if (!dScopes.empty())
        {
            Lister_c Lister(m_Process, Frame, *Unit);
            Lister.SetFunction(&dScopes.front());
            for (Dwarf_Die & Scope : dScopes)
            {
                Lister.List(&Scope, Types, dVariables);
            }
        }
        return dVariables;
    }
}
