#include "tools/zqsymbols/places.h"

#include "tools/zqsymbols/dies.h"

#include <algorithm>
#include <cstring>
#include <dwarf.h>
#include <string_view>

namespace zqsymbols
{
    namespace
    {
        constexpr unsigned MAX_CALLERS =
            32;   // most callers whose values one value may need, each through the one before

        bool IsOneOf(int nTag, int nFirst, int nSecond)
        {
            return nTag == nFirst || nTag == nSecond;
        }

        // Finds the call that returns to an address. Returns false if there is none.
        bool FindCall(std::vector<Dwarf_Die> & dScopes, Dwarf_Addr nReturn, Dwarf_Die * pCall)
        {
            for (std::size_t i = dScopes.size(); i-- > 0;)
            {
                bool bGoesOn = dwarf_child(&dScopes[i], pCall) == 0;
                for (; bGoesOn; bGoesOn = dwarf_siblingof(pCall, pCall) == 0)
                {
                    Dwarf_Attribute Attribute;
                    Dwarf_Addr nAddress = 0;
                    int const nTag = dwarf_tag(pCall);
                    unsigned const nAttribute = nTag == DW_TAG_call_site ? DW_AT_call_return_pc : DW_AT_low_pc;
                    if (IsOneOf(nTag, DW_TAG_call_site, DW_TAG_GNU_call_site)
                        && dwarf_formaddr(dwarf_attr(pCall, nAttribute, &Attribute), &nAddress) == 0
                        && nAddress == nReturn)
                    {
                        return true;
                    }
                }
            }
            return false;
        }

        // Returns a function's name for the linker, its plain name if it has none, or null if it has neither.
        char const * LinkerName(Dwarf_Die * pDie)
        {
            Dwarf_Attribute Attribute;
            char const * const szName = LinkageName(pDie);
            return szName != nullptr ? szName : dwarf_formstring(dwarf_attr_integrate(pDie, DW_AT_name, &Attribute));
        }

        // Returns whether a call is known to call the function. Otherwise its callee may have reached the function
        // by a tail call.
        bool Calls(Process_c & Process, Surroundings_t const & Caller, Dwarf_Die * pCall, Dwarf_Addr nInCaller,
            Dwarf_Die * pFunction, Dwarf_Addr nEntry)
        {
            for (unsigned const nAttribute : { DW_AT_call_origin, DW_AT_abstract_origin })
            {
                Dwarf_Die Target = TargetOf(pCall, nAttribute);
                if (Target.addr != nullptr)
                {
                    char const * const szTarget = LinkerName(&Target);
                    char const * const szFunction = LinkerName(pFunction);
                    return Origin(Target).addr == Origin(*pFunction).addr
                           || (szTarget != nullptr && szFunction != nullptr && std::strcmp(szTarget, szFunction) == 0);
                }
            }
            for (unsigned const nAttribute : { DW_AT_call_target, DW_AT_GNU_call_site_target })
            {
                Place_t const Place = Locate(Process, Caller, pCall, nAttribute, nInCaller);
                if (Place.ePlace != PLACE_UNKNOWN)
                {
                    return Place.ePlace != PLACE_REGISTER && Place.nValue == nEntry;
                }
            }
            return false;
        }

        // Returns whether a parameter of a call is passed in the register iRegister.
        bool IsPassedIn(Dwarf_Die * pParameter, unsigned iRegister)
        {
            Dwarf_Attribute Attribute;
            Dwarf_Op * pOperations = nullptr;
            std::size_t nOperations = 0;
            if (!IsOneOf(dwarf_tag(pParameter), DW_TAG_call_site_parameter, DW_TAG_GNU_call_site_parameter)
                || dwarf_getlocation(dwarf_attr(pParameter, DW_AT_location, &Attribute), &pOperations, &nOperations)
                       != 0
                || nOperations != 1)
            {
                return false;
            }
            unsigned const nCode = pOperations->atom;
            return nCode == DW_OP_regx ? pOperations->number == iRegister
                                       : nCode <= DW_OP_reg31 && nCode == DW_OP_reg0 + iRegister;
        }

        // Returns whether the unit's debug information places a variable in a register during a call only if the callee
        // leaves that register alone.
        bool KnowsCallees(Dwarf_Die Unit)
        {
            Dwarf_Attribute Attribute;
            char const * const szProducer = dwarf_formstring(dwarf_attr(&Unit, DW_AT_producer, &Attribute));
            return szProducer != nullptr && std::string_view(szProducer).starts_with("GNU ");
        }

        // Returns the address at which a function is entered, or nothing if it is unknown. A function in several parts
        // may have no attribute for it: then the first of its ranges has it.
        std::optional<Dwarf_Addr> EntryOf(Dwarf_Die * pFunction)
        {
            Dwarf_Addr nEntry = 0;
            Dwarf_Addr nBase = 0;
            Dwarf_Addr nEnd = 0;
            bool const bKnown =
                dwarf_entrypc(pFunction, &nEntry) == 0 || dwarf_ranges(pFunction, 0, &nBase, &nEntry, &nEnd) > 0;
            return bKnown ? std::optional(nEntry) : std::nullopt;
        }

        // Returns what a register held when the frame's function was called: the value of the call's parameter that is
        // passed in that register. Returns nothing if it is unknown.
        std::optional<std::uint64_t> ValueAtCall(
            Process_c & Process, Surroundings_t const & Surroundings, unsigned iRegister)
        {
            Frame_t const & Frame = *Surroundings.pFrame;
            Frame_t const * const pCaller = Surroundings.nCallers < MAX_CALLERS ? Frame.pCaller : nullptr;
            std::optional<Unit_t> Own = Process.UnitAt(Frame.GetInside());
            std::optional<Unit_t> Unit =
                Own && pCaller != nullptr && pCaller->bCall ? Process.UnitAt(pCaller->GetInside()) : std::nullopt;
            if (!Unit)
            {
                return std::nullopt;
            }
            Dwarf_Die Call;
            std::vector<Dwarf_Die> dOwn = Process.ScopesAt(*Own, Frame.GetInside());
            std::vector<Dwarf_Die> dScopes = Process.ScopesAt(*Unit, pCaller->GetInside());
            std::optional<Dwarf_Addr> const nEntry = dOwn.empty() ? std::nullopt : EntryOf(&dOwn.front());
            if (!nEntry || dScopes.empty() || !FindCall(dScopes, pCaller->nAddress - Unit->nBias, &Call))
            {
                return std::nullopt;
            }
            Surroundings_t const Caller = SurroundingsOf(
                Process, *pCaller, *Unit, &dScopes.front(), *Surroundings.pEntryValues, Surroundings.nCallers + 1);
            Dwarf_Addr const nInCaller = pCaller->GetInside() - Unit->nBias;
            Dwarf_Die Parameter;
            bool bGoesOn = Calls(Process, Caller, &Call, nInCaller, &dOwn.front(), *nEntry + Own->nBias)
                           && dwarf_child(&Call, &Parameter) == 0;
            for (; bGoesOn; bGoesOn = dwarf_siblingof(&Parameter, &Parameter) == 0)
            {
                if (IsPassedIn(&Parameter, iRegister))
                {
                    unsigned const nAttribute = dwarf_tag(&Parameter) == DW_TAG_call_site_parameter
                                                    ? DW_AT_call_value
                                                    : DW_AT_GNU_call_site_value;
                    return ValueOf(Locate(Process, Caller, &Parameter, nAttribute, nInCaller), Caller.Registers);
                }
            }
            return std::nullopt;
        }
    }

    std::optional<std::uint64_t> ValueOf(Place_t const & Place, Registers_t const & Registers)
    {
        if (Place.ePlace == PLACE_REGISTER)
        {
            auto const iRegister = static_cast<unsigned>(std::min<std::uint64_t>(Place.nValue, REGISTERS));
            return Registers.IsKnown(iRegister) ? std::optional(Registers.dValues[iRegister]) : std::nullopt;
        }
        bool const bNumber = Place.ePlace == PLACE_ADDRESS || Place.ePlace == PLACE_VALUE;
        return bNumber ? std::optional(Place.nValue) : std::nullopt;
    }

    Surroundings_t SurroundingsOf(Process_c & Process, Frame_t const & Frame, Unit_t const & Unit,
        Dwarf_Die * pFunction, EntryValues_t & EntryValues, unsigned nCallers)
    {
        Surroundings_t Surroundings = { Frame.Registers, Unit.nBias, Frame.nCfa };
        Surroundings.pFrame = &Frame;
        Surroundings.pEntryValues = &EntryValues;
        Surroundings.nCallers = nCallers;
        if (KnowsCallees(Unit.Die))
        {
            Surroundings.Registers.nKnown |= Frame.Registers.dwAssumed;
        }
        Place_t const Place =
            Locate(Process, Surroundings, pFunction, DW_AT_frame_base, Frame.GetInside() - Unit.nBias);
        Surroundings.nFrameBase = ValueOf(Place, Frame.Registers);
        return Surroundings;
    }

    Place_t Locate(
        Process_c & Process, Surroundings_t Surroundings, Dwarf_Die * pDie, unsigned nAttribute, Dwarf_Addr nAddress)
    {
        Dwarf_Attribute Attribute;
        Dwarf_Op * pOperations = nullptr;
        std::size_t nOperations = 0;
        if (dwarf_attr_integrate(pDie, nAttribute, &Attribute) == nullptr
            || dwarf_getlocation_addr(&Attribute, nAddress, &pOperations, &nOperations, 1) != 1)
        {
            return {};
        }
        Surroundings.pAttribute = &Attribute;
        return Evaluate(Process, Surroundings, { pOperations, nOperations });
    }

    // Finds each value once, because one may depend on several of the caller's, and those likewise.
    std::optional<std::uint64_t> EntryValue(
        Process_c & Process, Surroundings_t const & Surroundings, unsigned iRegister)
    {
        auto const [itValue, bNew] = Surroundings.pEntryValues->try_emplace({ Surroundings.pFrame, iRegister });
        if (bNew)
        {
            itValue->second = ValueAtCall(Process, Surroundings, iRegister);
        }
        return itValue->second;
    }
}
