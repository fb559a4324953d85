// symbols.h: the frames, names, lines and variables of a thread of this process.
//
// The debug information is read by a program of its own, zqsymbols, which stands beside the library and asks this
// process for the bytes of its memory that it needs. Nothing here takes memory from the heap or waits for a lock, and
// every answer has a time limit: without the helper, or once it has failed, frames come from the chain of frame
// pointers and everything else is unknown. One object serves one thread's registers; it is not shared.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    struct FaultContext_t;

    struct SymbolFrame_t
    {
        std::uintptr_t Address;   // of the instruction: the fault's, then return addresses
        std::uintptr_t Frame;     // the frame pointer's value in that frame; 0 ends the walk
    };

    enum SymbolKind_e : std::uint8_t
    {
        SYMBOL_OTHER,
        SYMBOL_PARAMETER,
        SYMBOL_LOCAL
    };

    enum SymbolPlace_e : std::uint8_t
    {
        PLACE_NONE,   // optimised out
        PLACE_REGISTER,
        PLACE_MEMORY
    };

    /// A type of the helper's, valid while the Symbols_c lives. 0 is no type.
    using SymbolType_t = std::uint32_t;

    struct SymbolVariable_t
    {
        char szName[1024];
        SymbolKind_e eKind;
        SymbolPlace_e ePlace;
        bool bFunction;
        std::uintptr_t Address;   // of PLACE_MEMORY
        std::uint64_t nSize;      // bytes of its type, 0 if unknown
        SymbolType_t nType;
    };

    enum SymbolBase_e : std::uint8_t
    {
        BASE_NONE = 0,
        BASE_CHAR = 2,   // also a pointer to char
        BASE_INTEGER = 6,
        BASE_UNSIGNED = 7,
        BASE_FLOAT = 8,
        BASE_BOOL = 10
    };

    struct SymbolMember_t
    {
        SymbolType_t nType;
        std::uint64_t nOffset;
        std::uint64_t nSize;
    };

    class Symbols_c
    {
    public:
        Symbols_c() = default;
        ~Symbols_c() { Stop(); }
        Symbols_c(Symbols_c const &) = delete;
        Symbols_c & operator=(Symbols_c const &) = delete;

        /// Starts the helper for the calling process and the thread with these registers, which must stay alive. False
        /// without a helper; the walk then goes by frame pointers.
        bool Start(FaultContext_t const * pContext);
        void Stop();
        bool IsRunning() const { return m_hProcess > 0; }

        /// The next frame, from the innermost out; false at the end.
        bool NextFrame(SymbolFrame_t * pFrame);
        /// Starts the walk over.
        void Rewind();

        /// The function at an address, as the source spells it, cut to nSize - 1 bytes, and the distance from its start.
        bool FunctionAt(std::uintptr_t Address, char * szName, std::size_t nSize, std::uint64_t * pDisplacement);

        /// The source line at an address. For a return address ask for the byte before.
        bool LineAt(std::uintptr_t Address, char * szFile, std::size_t nSize, unsigned * pLine);

        /// The variables in scope in the frame that NextFrame gave last: parameters, locals of the open blocks.
        bool NextVariable(SymbolVariable_t * pVariable);

        /// A type's name; false if it has none.
        bool TypeName(SymbolType_t nType, char * szName, std::size_t nSize);
        /// Members of a structure, its bases included as members: 0 for every other type.
        unsigned TypeMembers(SymbolType_t nType);
        bool TypeMember(SymbolType_t nType, unsigned iMember, SymbolMember_t * pMember);
        SymbolBase_e TypeBase(SymbolType_t nType);

    private:
        FaultContext_t const * m_pContext = nullptr;
        int m_hProcess = 0;      // the helper, 0 without
        int m_hRequests = -1;    // to the helper
        int m_hAnswers = -1;     // from it
        unsigned m_iFrame = 0;   // frames given
        SymbolFrame_t m_Frame{};
    };
}
