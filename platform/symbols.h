// symbols.h: the frames, names, lines and variables of a thread of this process.
//
// A helper reads the debug information and this process's memory. It is a program of the library, or the system's own
// library for debug information. Without a helper, or after it failed or exceeded a limit, frames come from the chain
// of frame pointers. Everything else is then unknown.
//
// Threads: one object serves one thread's registers and is not shared.
// Cost: less than 12 KB of stack. No heap and no lock, so a fault filter may call all of it. All answers of one object
// together take at most SYMBOL_LIMIT; one answer may use all of that.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    struct FaultContext_t;
    struct SymbolRequest_t;
    struct SymbolAnswer_t;

    /// The most frames that a walk returns. A runaway recursion has more than anyone reads.
    inline constexpr unsigned SYMBOL_FRAMES = 4096;

    inline constexpr unsigned SYMBOL_LIMIT = 20000;   // milliseconds

    /// A frame of the stack.
    struct SymbolFrame_t
    {
        std::uintptr_t Address;   // of the instruction: the fault's, then return addresses
        std::uintptr_t Frame;     // where the function keeps its caller's frame pointer, or would; 0 for a lost stack
    };

    /// Kind of a variable.
    enum SymbolKind_e : std::uint8_t
    {
        SYMBOL_OTHER,
        SYMBOL_PARAMETER,
        SYMBOL_LOCAL
    };

    /// Place of a variable's value.
    enum SymbolPlace_e : std::uint8_t
    {
        PLACE_NONE,   // optimised out, a constant, or spread over several places
        PLACE_REGISTER,
        PLACE_MEMORY
    };

    /// A type that the helper knows, valid until Stop. A member counts as a type of its own. 0 is no type.
    using SymbolType_t = std::uint32_t;

    /// A variable in scope.
    struct SymbolVariable_t
    {
        char szName[1024];
        SymbolKind_e eKind;
        SymbolPlace_e ePlace;
        bool bFunction;           // it is a function, not data
        std::uintptr_t Address;   // of PLACE_MEMORY
        std::uint64_t nSize;      // bytes of its type, 0 if unknown
        SymbolType_t nType;
    };

    /// Fundamental type of a value, with the numbers of the Windows symbol library (BasicType).
    enum SymbolBase_e : std::uint8_t
    {
        BASE_NONE = 0,
        BASE_CHAR = 2,   // also a pointer to char or an array of them
        BASE_INTEGER = 6,
        BASE_UNSIGNED = 7,
        BASE_FLOAT = 8,
        BASE_BOOL = 10
    };

    /// A member. TypeName of its nType returns the member's name, or for a base class the name of its type. TypeMembers
    /// and TypeBase of it are those of the member's type.
    struct SymbolMember_t
    {
        SymbolType_t nType;
        std::uint64_t nOffset;    // from the start of the variable, with the offsets of the outer members added
        std::uint64_t nSize;      // bytes of its type, 0 if unknown
        std::uint8_t nFirstBit;   // of a bit field: its lowest bit in the nSize bytes at nOffset
        std::uint8_t nBits;       // of a bit field: the number of its bits; 0 for other members
    };

    /// Sections of a description of the process that the helper makes, of whole lines (docs/formats.md).
    enum SymbolSection_e : std::uint8_t
    {
        SECTION_FRAMES,   // the frames of the thread with their sources and variables
        SECTION_THREADS   // the frames of the other threads; these stop for a moment
    };

    /// Reason for which a walk has no helper.
    enum SymbolEnd_e : std::uint8_t
    {
        HELPER_ENDED,     // Stop was called
        HELPER_MISSING,   // there is none, or it may not be used
        HELPER_FAILED,
        HELPER_LATE   // SYMBOL_LIMIT has passed
    };

    /// Adds a printer: the form in which SECTION_FRAMES shows the values of a type. The type's name has its namespaces;
    /// `*` in it is any text. In the template `{name}` is the value of a member, `{name.name}` that of a member's
    /// member, and all else is copied. Later additions of a name come first. Copies both texts. Returns false if a text
    /// is too long (127 and 255 bytes), or if there are 32. Requires that no other thread adds or starts a walk.
    bool SymbolsAddPrinter(char const * szType, char const * szTemplate);

    /// Sets the helper's path, cut at 1023 bytes; empty for none. Before the first call the helper is the one in the
    /// folder of the program or library that holds this code, else the installed one. Requires that no other thread
    /// starts a walk. Does nothing on a system where the helper is no program.
    void SymbolsSetHelper(char const * szPath);

    /// A walk over the frames of one thread, with their names, lines and variables.
    class Symbols_c
    {
    public:
        Symbols_c() = default;
        ~Symbols_c() { Stop(); }
        Symbols_c(Symbols_c const &) = delete;
        Symbols_c & operator=(Symbols_c const &) = delete;

        /// Starts the helper for the calling process and the thread with these registers, which must stay alive.
        /// Returns false without a helper. Also returns false if ProcessIsSecure (process.h), because names and lines
        /// come from files. The walk then uses frame pointers.
        bool Start(FaultContext_t const * pContext);

        /// Ends the helper. Does nothing without one.
        void Stop() { End(HELPER_ENDED); }

        /// Allows SYMBOL_LIMIT for the answers from now on.
        void Renew() { m_nWaited = 0; }

        /// Returns the reason for which there is no helper, if there is none.
        SymbolEnd_e GetEnd() const { return m_eEnd; }
        bool IsRunning() const { return m_hHelper != NO_HANDLE; }

        /// Reads the next frame, from the innermost outward. Returns false at the end.
        bool NextFrame(SymbolFrame_t * pFrame);

        /// Restarts the walk.
        void Rewind();

        /// Finds the function at an address and the distance from its start. The name is spelled as in the source,
        /// without argument and return types, and cut to nSize - 1 bytes. Returns false, with an empty name, if the
        /// function is unknown.
        bool FunctionAt(std::uintptr_t Address, char * szName, std::size_t nSize, std::uint64_t * pDisplacement);

        /// Finds the source line at an address. For a return address, pass the address of the byte before it. Returns
        /// false, with an empty name, if the line is unknown.
        bool LineAt(std::uintptr_t Address, char * szFile, std::size_t nSize, unsigned * pLine);

        /// Reads the next variable in scope in the last frame of NextFrame. First come parameters and locals of the
        /// function, then those of the open blocks and inlined calls, from the outermost inward. Returns false at the
        /// end.
        bool NextVariable(SymbolVariable_t * pVariable);

        /// Copies the name of a structure, an enumeration or a member. Looks through aliases and const. Returns false
        /// for other types.
        bool TypeName(SymbolType_t nType, char * szName, std::size_t nSize);

        /// Returns the number of members of a structure, at most 1024. Its bases come first; static members are left
        /// out. Returns 0 for every other type, and for structures nested deeper than 16.
        unsigned TypeMembers(SymbolType_t nType);

        /// Reads a member. Returns false after the last one.
        bool TypeMember(SymbolType_t nType, unsigned iMember, SymbolMember_t * pMember);

        /// Returns what a value of the type is. An enumeration is its integer, an array of one dimension its element.
        /// Pointers to anything but char are BASE_NONE.
        SymbolBase_e TypeBase(SymbolType_t nType);

        /// Copies the next lines of a section, each with its line end. Returns false at the end of the section. A
        /// failed helper ends it too.
        bool NextDetail(SymbolSection_e eSection, char * szText, std::size_t nSize);

    private:
        void End(SymbolEnd_e eEnd);
        void AllowTracing();
        bool Launch();
        bool Greet();
        bool NextByChain();
        bool Ask(SymbolRequest_t Request, SymbolAnswer_t * pAnswer);
        bool AskText(SymbolRequest_t const & Request, char * szText, std::size_t nSize, std::uint64_t * pValue);

        /// A handle of the system for the helper.
        using Handle_t = std::intptr_t;
        static constexpr Handle_t NO_HANDLE = -1;

        FaultContext_t const * m_pContext = nullptr;
        Handle_t m_hHelper = NO_HANDLE;    // for questions
        Handle_t m_hProcess = NO_HANDLE;   // to end it
        Handle_t m_nProcess = NO_HANDLE;   // its number
        SymbolEnd_e m_eEnd = HELPER_MISSING;
        unsigned m_nWaited = 0;       // milliseconds, for answers
        std::uint32_t m_nAsked = 0;   // questions
        unsigned m_iFrame = 0;        // frames returned
        unsigned m_iVariable = 0;     // variables of the last frame returned
        bool m_bServing = false;      // the helper waits for memory
        bool m_bTraced = false;       // the helper was allowed to trace
        bool m_bLast = false;         // the chain of frame pointers ends here
        SymbolFrame_t m_Frame{};      // the last one returned
    };
}
