// symbols.h: the frames, names, lines and variables of a thread of this process.
//
// A helper reads the debug information, and this process's memory for it: a program of the library, or the system's own
// library for debug information. Without the helper, and once it has failed or exceeded a limit, frames come from the
// chain of frame pointers and everything else is unknown.
//
// Threads: one object serves one thread's registers and is not shared.
// Cost: no heap and no lock, so a fault filter may call all of it, and less than 12 KB of stack. An answer takes at most
// 5 seconds, all answers of one object 20.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    struct FaultContext_t;
    struct SymbolRequest_t;
    struct SymbolAnswer_t;

    /// Frames that a walk gives at most: a runaway recursion has more than anyone reads.
    inline constexpr unsigned SYMBOL_FRAMES = 4096;

    struct SymbolFrame_t
    {
        std::uintptr_t Address;   // of the instruction: the fault's, then return addresses
        std::uintptr_t Frame;     // where the function keeps its caller's frame pointer, or would; 0 for a lost stack
    };

    enum SymbolKind_e : std::uint8_t
    {
        SYMBOL_OTHER,
        SYMBOL_PARAMETER,
        SYMBOL_LOCAL
    };

    enum SymbolPlace_e : std::uint8_t
    {
        PLACE_NONE,   // optimised out, a constant, or spread over several places
        PLACE_REGISTER,
        PLACE_MEMORY
    };

    /// A type of the helper's, valid until Stop; a member counts as a type of its own. 0 is no type.
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

    /// Its nType has the member's name as TypeName, a base class that of its type, and the members and the base type of
    /// the member's type.
    struct SymbolMember_t
    {
        SymbolType_t nType;
        std::uint64_t nOffset;    // from the start of the variable: that of the outer members is added already
        std::uint64_t nSize;      // bytes of its type, 0 if unknown
        std::uint8_t nFirstBit;   // of a bit field: its lowest bit in the nSize bytes at nOffset
        std::uint8_t nBits;       // and how many; 0 for other members
    };

    /// Sets the helper's path, cut at 1023 bytes, empty for none. Before the first call it is the one in the folder of the
    /// program or library that holds this code, else the installed one. Not while another thread starts a walk. Does
    /// nothing where the helper is no program.
    void SymbolsSetHelper(char const * szPath);

    class Symbols_c
    {
    public:
        Symbols_c() = default;
        ~Symbols_c() { Stop(); }
        Symbols_c(Symbols_c const &) = delete;
        Symbols_c & operator=(Symbols_c const &) = delete;

        /// Starts the helper for the calling process and the thread with these registers, which must stay alive. False
        /// without a helper and where ProcessIsSecure (process.h): names and lines come from files; the walk then goes by frame pointers.
        bool Start(FaultContext_t const * pContext);

        /// Ends the helper. Costs nothing without one.
        void Stop();
        bool IsRunning() const { return m_hHelper != NO_HANDLE; }

        /// The next frame, from the innermost out; false at the end.
        bool NextFrame(SymbolFrame_t * pFrame);

        /// Starts the walk over.
        void Rewind();

        /// The function at an address, as the source spells it but without argument and return types, cut to nSize - 1
        /// bytes, and the distance from its start. False if it is unknown; the name is then empty.
        bool FunctionAt(std::uintptr_t Address, char * szName, std::size_t nSize, std::uint64_t * pDisplacement);

        /// The source line at an address. For a return address ask for the byte before. False as above.
        bool LineAt(std::uintptr_t Address, char * szFile, std::size_t nSize, unsigned * pLine);

        /// The next variable in scope in the frame that NextFrame gave last: parameters and locals of the function,
        /// then of the open blocks and inlined calls, from the outermost in. False at the end.
        bool NextVariable(SymbolVariable_t * pVariable);

        /// The name of a structure, an enumeration or a member; false for other types. Aliases and const are seen
        /// through.
        bool TypeName(SymbolType_t nType, char * szName, std::size_t nSize);

        /// Members of a structure, its bases first, static ones left out; at most 1024. 0 for every other type, and for
        /// structures nested deeper than 16.
        unsigned TypeMembers(SymbolType_t nType);

        /// False past the last member.
        bool TypeMember(SymbolType_t nType, unsigned iMember, SymbolMember_t * pMember);

        /// What a value of the type is; an enumeration is its integer, arrays and other pointers are BASE_NONE.
        SymbolBase_e TypeBase(SymbolType_t nType);

    private:
        bool Launch();
        bool Greet();
        bool NextByChain();
        bool Ask(SymbolRequest_t const & Request, SymbolAnswer_t * pAnswer);
        bool AskText(SymbolRequest_t const & Request, char * szText, std::size_t nSize, std::uint64_t * pValue);

        // What the system has of the helper.
        using Handle_t = std::intptr_t;
        static constexpr Handle_t NO_HANDLE = -1;

        FaultContext_t const * m_pContext = nullptr;
        Handle_t m_hHelper = NO_HANDLE;    // for questions
        Handle_t m_hProcess = NO_HANDLE;   // to end it
        unsigned m_nWaited = 0;            // milliseconds, for answers
        unsigned m_iFrame = 0;             // frames given
        unsigned m_iVariable = 0;          // variables given of the last frame
        bool m_bAsking = false;            // an answer is due
        bool m_bLast = false;              // the chain of frame pointers ends here
        SymbolFrame_t m_Frame{};           // the last one given
    };
}
