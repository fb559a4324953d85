#include "tools/zqsymbols/expression.h"

#include "tools/zqsymbols/dies.h"
#include "tools/zqsymbols/places.h"

#include <algorithm>
#include <cstring>
#include <dwarf.h>

namespace zqsymbols
{
    namespace
    {
        constexpr int MAX_STEPS = 10000;        // an expression may jump back
        constexpr std::size_t MAX_BYTES = 64;   // of a value in pieces, or in the expression

        class Evaluator_c
        {
        public:
            Evaluator_c(Process_c & Process, Surroundings_t const & Surroundings, std::span<Dwarf_Op const> dOperations)
                : m_Process(Process)
                , m_Surroundings(Surroundings)
                , m_dOperations(dOperations)
            {}

            Place_t Run()
            {
                Place_e eResult = PLACE_ADDRESS;
                bool bPieces = false;
                for (int nSteps = 0; m_iOperation < m_dOperations.size(); ++nSteps)
                {
                    Dwarf_Op const & Operation = m_dOperations[m_iOperation++];
                    bool const bPiece = Operation.atom == DW_OP_piece;
                    bool const bMore = eResult == PLACE_ADDRESS;   // only a piece comes after any other place
                    bool const bDone = bPiece ? AddPiece(eResult, Operation.number)
                                              : bMore
                                                    && (Push(Operation) || Compute(Operation) || Rearrange(Operation)
                                                        || Place(Operation, eResult));
                    if (!bDone || m_bFailed || nSteps > MAX_STEPS)
                    {
                        return {};
                    }
                    bPieces = bPieces || bPiece;
                }
                if (bPieces || eResult == PLACE_BYTES)
                {
                    bool const bWhole = m_dStack.empty() && eResult == (bPieces ? PLACE_ADDRESS : PLACE_BYTES);
                    return bWhole ? Place_t{ PLACE_BYTES, 0, bPieces ? m_dPieces : m_dBytes } : Place_t{};
                }
                return m_dStack.empty() ? Place_t{} : Place_t{ eResult, m_dStack.back() };
            }

        private:
            void Put(std::uint64_t nValue) { m_dStack.push_back(m_Process.Cut(nValue)); }

            // Pushes a number with nMore added. Fails without a number.
            void PutIfKnown(std::optional<std::uint64_t> nValue, std::uint64_t nMore = 0)
            {
                m_bFailed |= !nValue;
                Put(nValue.value_or(0) + nMore);
            }

            // Removes the top of the stack and returns it. Fails and returns 0 if the stack is empty.
            std::uint64_t Take()
            {
                if (m_dStack.empty())
                {
                    m_bFailed = true;
                    return 0;
                }
                std::uint64_t const nValue = m_dStack.back();
                m_dStack.pop_back();
                return nValue;
            }

            std::int64_t SignedFromWord(std::uint64_t nValue) const
            {
                return m_Process.GetWord() == 8 ? static_cast<std::int64_t>(nValue)
                                                : static_cast<std::int32_t>(static_cast<std::uint32_t>(nValue));
            }

            std::optional<std::uint64_t> Register(std::uint64_t iRegister) const
            {
                auto const iBounded = static_cast<unsigned>(std::min<std::uint64_t>(iRegister, REGISTERS));
                return m_Surroundings.Registers.IsKnown(iBounded)
                           ? std::optional(m_Surroundings.Registers.dValues[iBounded])
                           : std::nullopt;
            }

            // Adds the first bytes of what the expression has found so far, and starts the next piece. Returns false if
            // they are unknown or too many.
            bool AddPiece(Place_e & eResult, std::uint64_t nBytes)
            {
                std::uint8_t dBytes[MAX_BYTES];
                std::uint64_t const nValue = eResult == PLACE_BYTES ? 0 : Take();
                std::optional<std::uint64_t> const nFound = eResult == PLACE_REGISTER ? Register(nValue) : nValue;
                bool bKnown = !m_bFailed && nBytes <= MAX_BYTES - m_dPieces.size();
                if (eResult == PLACE_ADDRESS)
                {
                    bKnown = bKnown && m_Process.Read(nValue, dBytes, nBytes);
                }
                else if (eResult == PLACE_BYTES)
                {
                    bKnown = bKnown && nBytes <= m_dBytes.size();
                    std::copy_n(m_dBytes.begin(), bKnown ? nBytes : 0, dBytes);
                }
                else
                {
                    std::uint64_t const nNumber = nFound.value_or(0);
                    bool const bFits = nBytes <= (eResult == PLACE_VALUE ? m_Process.GetWord() : sizeof(nNumber));
                    bKnown = bKnown && nFound && bFits;
                    std::memcpy(dBytes, &nNumber, bKnown ? nBytes : 0);
                }
                m_dPieces.insert(m_dPieces.end(), dBytes, dBytes + (bKnown ? nBytes : 0));
                eResult = PLACE_ADDRESS;
                m_dStack.clear();
                return bKnown;
            }

            // Pushes a number, converted to the type that the operation names, or as it is if bGeneric. Fails in these
            // cases, of which only the first applies if bGeneric:
            // - There is no number.
            // - The type is unknown.
            // - The type is neither an integer, a truth value nor an address.
            // - The type has more bytes than an address.
            void PutConverted(Dwarf_Op const & Operation, bool bGeneric, std::optional<std::uint64_t> nNumber)
            {
                Dwarf_Die Type;
                Dwarf_Word nSize = 0;
                bool const bType = !bGeneric && m_Surroundings.pAttribute != nullptr
                                   && dwarf_getlocation_die(m_Surroundings.pAttribute, &Operation, &Type) == 0
                                   && dwarf_aggregate_size(&Type, &nSize) == 0;
                std::uint64_t const nEncoding = bType ? Number(&Type, DW_AT_encoding, 0) : 0;
                bool const bSigned = IsSignedEncoding(nEncoding);
                bool const bInteger = bSigned || nEncoding == DW_ATE_unsigned || nEncoding == DW_ATE_unsigned_char
                                      || nEncoding == DW_ATE_boolean || nEncoding == DW_ATE_address;
                m_bFailed |= !bGeneric && (!bInteger || nSize == 0 || nSize > m_Process.GetWord());
                m_bUnsigned |= !bSigned && nSize == m_Process.GetWord();
                std::uint64_t const nOther = m_bFailed || bGeneric ? 0 : 64 - nSize * 8;
                std::uint64_t const nHigh = nNumber.value_or(0) << nOther;
                std::uint64_t const nExtended =
                    bSigned ? static_cast<std::uint64_t>(static_cast<std::int64_t>(nHigh) >> nOther) : nHigh >> nOther;
                PutIfKnown(nNumber ? std::optional(nExtended) : std::nullopt);
            }

            // Returns a number from the table of addresses, with the bias added if the operation means an address.
            // Returns nothing if there is no such number.
            std::optional<std::uint64_t> NumberInTable(Dwarf_Op const & Operation) const
            {
                Dwarf_Attribute Attribute;
                Dwarf_Addr nNumber = 0;
                bool const bFound = m_Surroundings.pAttribute != nullptr
                                    && dwarf_getlocation_attr(m_Surroundings.pAttribute, &Operation, &Attribute) == 0
                                    && dwarf_formaddr(&Attribute, &nNumber) == 0;
                bool const bAddress = Operation.atom == DW_OP_addrx || Operation.atom == DW_OP_GNU_addr_index;
                return bFound ? std::optional(nNumber + (bAddress ? m_Surroundings.nBias : 0)) : std::nullopt;
            }

            // Returns what a register held when the function was called, or nothing if that is unknown.
            std::optional<std::uint64_t> ValueAtEntry(Dwarf_Op const & Operation) const
            {
                Dwarf_Attribute Attribute;
                Dwarf_Op * pInner = nullptr;
                std::size_t nInner = 0;
                if (m_Surroundings.pAttribute == nullptr || m_Surroundings.pFrame == nullptr
                    || dwarf_getlocation_attr(m_Surroundings.pAttribute, &Operation, &Attribute) != 0
                    || dwarf_getlocation(&Attribute, &pInner, &nInner) != 0 || nInner != 1)
                {
                    return std::nullopt;
                }
                bool const bShort = pInner->atom >= DW_OP_reg0 && pInner->atom <= DW_OP_reg31;
                std::uint64_t const iRegister = bShort ? pInner->atom - DW_OP_reg0 : pInner->number;
                return (bShort || pInner->atom == DW_OP_regx) && iRegister < REGISTERS
                           ? EntryValue(m_Process, m_Surroundings, static_cast<unsigned>(iRegister))
                           : std::nullopt;
            }

            // Runs an operation that pushes a constant, a register or a value of the frame. Returns false for any
            // other.
            bool Push(Dwarf_Op const & Operation)
            {
                unsigned const nCode = Operation.atom;
                if (nCode >= DW_OP_lit0 && nCode <= DW_OP_lit31)
                {
                    Put(nCode - DW_OP_lit0);
                    return true;
                }
                if (nCode >= DW_OP_breg0 && nCode <= DW_OP_breg31)
                {
                    PutIfKnown(Register(nCode - DW_OP_breg0), Operation.number);
                    return true;
                }
                switch (nCode)
                {
                case DW_OP_addr:
                    Put(Operation.number + m_Surroundings.nBias);
                    return true;
                case DW_OP_const1u:
                case DW_OP_const1s:
                case DW_OP_const2u:
                case DW_OP_const2s:
                case DW_OP_const4u:
                case DW_OP_const4s:
                case DW_OP_const8u:
                case DW_OP_const8s:
                case DW_OP_constu:
                case DW_OP_consts:
                    Put(Operation.number);
                    return true;
                case DW_OP_bregx:
                    PutIfKnown(Register(Operation.number), Operation.number2);
                    return true;
                case DW_OP_fbreg:
                    PutIfKnown(m_Surroundings.nFrameBase, Operation.number);
                    return true;
                case DW_OP_call_frame_cfa:
                    PutIfKnown(m_Surroundings.nCfa);
                    return true;
                case DW_OP_addrx:
                case DW_OP_constx:
                case DW_OP_GNU_addr_index:
                case DW_OP_GNU_const_index:
                    PutIfKnown(NumberInTable(Operation));
                    return true;
                case DW_OP_entry_value:
                case DW_OP_GNU_entry_value:
                    PutIfKnown(ValueAtEntry(Operation));
                    return true;
                default:
                    return false;
                }
            }

            // Runs an operation that reads or computes a value. Returns false for any other.
            bool Compute(Dwarf_Op const & Operation)
            {
                switch (Operation.atom)
                {
                case DW_OP_deref:
                    PutIfKnown(m_Process.ReadNumber(Take(), m_Process.GetWord()));
                    return true;
                case DW_OP_deref_size:
                    PutIfKnown(m_Process.ReadNumber(Take(), Operation.number));
                    return true;
                case DW_OP_plus_uconst:
                    Put(Take() + Operation.number);
                    return true;
                case DW_OP_neg:
                    Put(0 - Take());
                    return true;
                case DW_OP_convert:
                case DW_OP_GNU_convert:
                case DW_OP_reinterpret:
                case DW_OP_GNU_reinterpret:
                    PutConverted(Operation, Operation.number == 0, Take());
                    return true;
                case DW_OP_regval_type:
                case DW_OP_GNU_regval_type:
                    PutConverted(Operation, false, Register(Operation.number));
                    return true;
                case DW_OP_deref_type:
                case DW_OP_GNU_deref_type:
                    PutConverted(Operation, false, m_Process.ReadNumber(Take(), Operation.number));
                    return true;
                case DW_OP_not:
                    Put(~Take());
                    return true;
                case DW_OP_abs:
                {
                    std::uint64_t const nValue = Take();
                    Put(SignedFromWord(nValue) < 0 ? 0 - nValue : nValue);
                    return true;
                }
                default:
                    return Combine(Operation.atom);
                }
            }

            // Returns whether an operation works on two values.
            static bool IsOnTwo(unsigned nCode)
            {
                return nCode == DW_OP_and || (nCode >= DW_OP_div && nCode <= DW_OP_mul) || nCode == DW_OP_or
                       || nCode == DW_OP_plus || (nCode >= DW_OP_shl && nCode <= DW_OP_xor)
                       || (nCode >= DW_OP_eq && nCode <= DW_OP_ne);
            }

            // Returns the result of DW_OP_eq to DW_OP_ne.
            static bool Compare(unsigned nCode, std::int64_t iFirst, std::int64_t iSecond)
            {
                switch (nCode)
                {
                case DW_OP_eq:
                    return iFirst == iSecond;
                case DW_OP_ge:
                    return iFirst >= iSecond;
                case DW_OP_gt:
                    return iFirst > iSecond;
                case DW_OP_le:
                    return iFirst <= iSecond;
                case DW_OP_lt:
                    return iFirst < iSecond;
                default:
                    return iFirst != iSecond;
                }
            }

            // Runs an operation on two values. Returns false for any other.
            bool Combine(unsigned nCode)
            {
                if (!IsOnTwo(nCode))
                {
                    return false;
                }
                std::uint64_t const nSecond = Take();
                std::uint64_t const nFirst = Take();
                std::uint64_t const nBits = m_Process.GetWord() * 8;
                std::int64_t const iSignedSecond = SignedFromWord(nSecond);
                std::int64_t const iSignedFirst = SignedFromWord(nFirst);
                bool const bShifts = nSecond < nBits;
                bool const bDivides = nCode == DW_OP_div || nCode == DW_OP_mod;
                bool const bByType = bDivides || (nCode >= DW_OP_ge && nCode <= DW_OP_lt);
                m_bFailed |= bDivides && (nSecond == 0 || iSignedSecond == -1);
                m_bFailed |= m_bUnsigned && bByType;   // types are not kept: mod is unsigned, the others are signed
                if (m_bFailed)
                {
                    return true;
                }
                switch (nCode)
                {
                case DW_OP_and:
                    Put(nFirst & nSecond);
                    break;
                case DW_OP_div:
                    Put(static_cast<std::uint64_t>(iSignedFirst / iSignedSecond));
                    break;
                case DW_OP_minus:
                    Put(nFirst - nSecond);
                    break;
                case DW_OP_mod:
                    Put(nFirst % nSecond);
                    break;
                case DW_OP_mul:
                    Put(nFirst * nSecond);
                    break;
                case DW_OP_or:
                    Put(nFirst | nSecond);
                    break;
                case DW_OP_plus:
                    Put(nFirst + nSecond);
                    break;
                case DW_OP_shl:
                    Put(bShifts ? nFirst << nSecond : 0);
                    break;
                case DW_OP_shr:
                    Put(bShifts ? nFirst >> nSecond : 0);
                    break;
                case DW_OP_shra:
                    Put(static_cast<std::uint64_t>(iSignedFirst >> (bShifts ? nSecond : nBits - 1)));
                    break;
                case DW_OP_xor:
                    Put(nFirst ^ nSecond);
                    break;
                default:
                    Put(Compare(nCode, iSignedFirst, iSignedSecond));
                    break;
                }
                return true;
            }

            // Pushes a copy of the value that has iFromTop values above it. Fails if there is none.
            void PutCopy(std::uint64_t iFromTop)
            {
                m_bFailed |= iFromTop >= m_dStack.size();
                Put(m_bFailed ? 0 : m_dStack[m_dStack.size() - 1 - iFromTop]);
            }

            // Continues at another operation. Fails if none begins there.
            void Jump(Dwarf_Op const & Operation)
            {
                constexpr Dwarf_Word JUMP_BYTES = 3;   // of the operation itself (DWARF 5, section 2.5.1.5)
                Dwarf_Word const nTarget = Operation.offset + JUMP_BYTES + Operation.number;
                m_iOperation = 0;
                while (m_iOperation < m_dOperations.size() && m_dOperations[m_iOperation].offset != nTarget)
                {
                    ++m_iOperation;
                }
                m_bFailed |= m_iOperation == m_dOperations.size();
            }

            // Runs an operation that moves values on the stack, jumps or does nothing. Returns false for any other.
            bool Rearrange(Dwarf_Op const & Operation)
            {
                switch (Operation.atom)
                {
                case DW_OP_nop:
                    return true;
                case DW_OP_dup:
                    PutCopy(0);
                    return true;
                case DW_OP_over:
                    PutCopy(1);
                    return true;
                case DW_OP_pick:
                    PutCopy(Operation.number);
                    return true;
                case DW_OP_drop:
                    Take();
                    return true;
                case DW_OP_skip:
                    Jump(Operation);
                    return true;
                case DW_OP_bra:
                    if (Take() != 0)
                    {
                        Jump(Operation);
                    }
                    return true;
                case DW_OP_swap:
                case DW_OP_rot:
                {
                    std::uint64_t const nTop = Take();
                    std::uint64_t const nNext = Take();
                    std::uint64_t const nThird = Operation.atom == DW_OP_rot ? Take() : 0;
                    Put(nTop);
                    if (Operation.atom == DW_OP_rot)
                    {
                        Put(nThird);
                    }
                    Put(nNext);
                    return true;
                }
                default:
                    return false;
                }
            }

            // Runs an operation that ends an expression or a piece: a register by its number, the computed value, or a
            // value of at most MAX_BYTES bytes that the expression has. Returns false for any other.
            bool Place(Dwarf_Op const & Operation, Place_e & eResult)
            {
                unsigned const nCode = Operation.atom;
                Dwarf_Block Block;
                if (nCode == DW_OP_implicit_value && m_Surroundings.pAttribute != nullptr
                    && dwarf_getlocation_implicit_value(m_Surroundings.pAttribute, &Operation, &Block) == 0
                    && Block.length <= MAX_BYTES)
                {
                    m_dBytes.assign(Block.data, Block.data + Block.length);
                    eResult = PLACE_BYTES;
                    return true;
                }
                if (nCode == DW_OP_stack_value)
                {
                    eResult = PLACE_VALUE;
                    return true;
                }
                bool const bShort = nCode >= DW_OP_reg0 && nCode <= DW_OP_reg31;
                if (bShort || nCode == DW_OP_regx)
                {
                    eResult = PLACE_REGISTER;
                    Put(bShort ? nCode - DW_OP_reg0 : Operation.number);
                    return true;
                }
                return false;
            }

            Process_c & m_Process;
            Surroundings_t const & m_Surroundings;
            std::span<Dwarf_Op const> m_dOperations;
            std::size_t m_iOperation = 0;
            std::vector<std::uint64_t> m_dStack;
            std::vector<std::uint8_t> m_dBytes, m_dPieces;
            bool m_bUnsigned = false;   // whether a number may need all bits of an unsigned one
            bool m_bFailed = false;
        };
    }

    Place_t Evaluate(Process_c & Process, Surroundings_t const & Surroundings, std::span<Dwarf_Op const> dOperations)
    {
        return Evaluator_c(Process, Surroundings, dOperations).Run();
    }
}
