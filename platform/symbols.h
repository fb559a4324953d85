// symbols.h: the frames, names, lines and variables of a thread of this process.
//
// A helper reads the debug information and this process's memory. It is a program of the library (zqsymbols), or a
// library of the system that reads debug information. Without a helper, or after it has ended (SymbolEnd_e), frames
// come from the chain of frame pointers. Everything else is then unknown.
//
// Symbols_c is a walk: NextFrame moves it from the innermost frame outward, and NextVariable over the variables of the
// frame that NextFrame returned last.
//
// Threads: one object serves one thread's registers and is not shared.
// Cost: less than 12 KiB of stack. The calls use no heap and no lock, so a fault filter may make all of them. All
// answers of one object since Start or Renew together take at most SYMBOL_LIMIT. One answer may use all of that.
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

    /// The most members of a structure that are known. Further ones are left out.
    inline constexpr unsigned SYMBOL_MEMBERS = 1024;

    inline constexpr unsigned SYMBOL_LIMIT = 20000;   // milliseconds for all answers of one object since Start or Renew

    /// A frame of the stack.
    struct SymbolFrame_t
    {
        std::uintptr_t Address;   // of the next instruction
        std::uintptr_t Frame;     // where a function with a frame pointer stores that of its caller; 0 if unknown
        bool bCall;               // whether the address is a return address

        /// Returns the address that has the frame's place in the source: Address, or for a return address the byte
        /// before it, because a return address may lie after the last byte of its function or on the next line.
        std::uintptr_t PlaceInSource() const { return bCall ? Address - 1 : Address; }
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
        PLACE_NONE,   // optimised out, unknown, stored nowhere, or spread over several places
        PLACE_REGISTER,
        PLACE_MEMORY
    };

    /// Number of a type, valid while the helper runs, or 0 for none. Each member has a number too, for which TypeName
    /// copies the member's name (SymbolMember_t).
    using SymbolType_t = std::uint32_t;

    /// A variable in scope.
    struct SymbolVariable_t
    {
        char szName[1024];
        SymbolKind_e eKind;
        SymbolPlace_e ePlace;
        bool bFunction;           // whether it is a function, not data
        std::uintptr_t Address;   // of PLACE_MEMORY
        std::uint64_t nSize;      // bytes of its type, 0 if unknown
        SymbolType_t iType;
    };

    /// Fundamental type of a value, with the numbers of the Windows symbol library (BasicType).
    enum SymbolBase_e : std::uint8_t
    {
        BASE_NONE = 0,
        BASE_CHAR = 2,   // also a pointer to char or an array of char
        BASE_INTEGER = 6,
        BASE_UNSIGNED = 7,
        BASE_FLOAT = 8,
        BASE_BOOL = 10
    };

    /// A member of a structure. For its iType:
    /// - TypeName copies the name of the member, or for a base class the name of its type.
    /// - TypeMembers, TypeMember and TypeBase return the facts of the member's type.
    struct SymbolMember_t
    {
        SymbolType_t iType;
        std::uint64_t nOffset;    // from the start of the variable, with the offsets of the outer members added
        std::uint64_t nSize;      // bytes of its type, 0 if unknown
        std::uint8_t nFirstBit;   // of a bit field: its lowest bit in the nSize bytes at nOffset
        std::uint8_t nBits;       // of a bit field: the number of its bits; 0 for other members
    };

    /// Sections of a text about the process that the helper makes. docs/formats.md describes their lines.
    enum SymbolSection_e : std::uint8_t
    {
        SECTION_FRAMES,   // the frames of the thread with their sources and variables
        SECTION_THREADS   // the frames of the other threads; these stop for a moment
    };

    /// Reason for which a walk has no helper.
    enum SymbolEnd_e : std::uint8_t
    {
        HELPER_ENDED,     // Stop was called
        HELPER_MISSING,   // none was started
        HELPER_FAILED,    // it ended, its answer was not understood, or a fault left it without memory it asked for
        HELPER_LATE       // SYMBOL_LIMIT has passed
    };

    /// Adds a printer: the form in which SECTION_FRAMES shows the values of a type. Copies both texts. If several
    /// printers match a type, the last one added is used. Requires that no other thread adds a printer or starts a
    /// walk. Returns false if a text is longer than its limit, or if there are 32 printers.
    ///
    /// szType is the type's name with its namespaces, at most 127 bytes. `*` in it is any text. szTemplate has at most
    /// 255 bytes. `{name}` in it is the value of a member, and `{name.name}` that of a member's member. All else is
    /// copied.
    bool SymbolsAddPrinter(char const * szType, char const * szTemplate);

    /// Sets the helper's path, cut at 4095 bytes. An empty path sets none. Before the first call the helper is the one
    /// in the folder of the program or library that holds this code, else the installed one. Does nothing if the
    /// system's helper is not a program. Requires that no other thread starts a walk.
    void SymbolsSetHelper(char const * szPath);

    /// A walk over the frames of one thread, with their names, lines and variables.
    class Symbols_c
    {
    public:
        Symbols_c() = default;
        ~Symbols_c() { Stop(); }
        Symbols_c(Symbols_c const &) = delete;
        Symbols_c & operator=(Symbols_c const &) = delete;

        /// Starts the helper for the calling process and the thread with these registers. Requires that *pContext
        /// outlives the walk. Returns false without a helper: the walk then uses frame pointers. Also returns false if
        /// ProcessIsSecure (process.h) returns true, because names and lines come from files.
        bool Start(FaultContext_t const * pContext);

        /// Ends the helper. Does nothing without one.
        void Stop() { End(HELPER_ENDED); }

        /// Allows SYMBOL_LIMIT again, for the answers that follow.
        void Renew() { m_nWaited = 0; }

        /// Return the reason for which there is no helper, and whether there is one. With a helper the reason means
        /// nothing.
        SymbolEnd_e GetEnd() const { return m_eEnd; }
        bool IsRunning() const { return m_hHelper != NO_HANDLE; }

        /// Reads the next frame, from the innermost outward. Returns false after the last one.
        bool NextFrame(SymbolFrame_t * pFrame);

        /// Restarts the walk at the innermost frame.
        void Rewind();

        /// Finds the function at an address and the displacement in bytes from its start. The name is spelled as in the
        /// source, without argument and return types, and cut to nSize - 1 bytes. Returns false, with an empty name and
        /// displacement 0, if the function is unknown.
        bool FunctionAt(std::uintptr_t Address, char * szName, std::size_t nSize, std::uint64_t * pDisplacement);

        /// Finds the source line at an address. The file's name is cut to nSize - 1 bytes. Returns false, with an empty
        /// name and line 0, if the line is unknown.
        bool LineAt(std::uintptr_t Address, char * szFile, std::size_t nSize, unsigned * pLine);

        /// Reads the next variable in scope in the last frame of NextFrame. Parameters and locals of the function come
        /// first, then those of the open blocks and inlined calls, from the outermost inward. Returns false after the
        /// last one.
        bool NextVariable(SymbolVariable_t * pVariable);

        /// Copies the name of a structure, an enumeration or a member, cut to nSize - 1 bytes. Skips const and aliases,
        /// but an unnamed type has the name of its alias. Returns false for other types, and for those without a name.
        bool TypeName(SymbolType_t iType, char * szName, std::size_t nSize);

        /// Returns the number of members of a structure, at most SYMBOL_MEMBERS. Its bases come first. Static members
        /// and virtual bases are left out. Returns 0 for every other type, and for structures nested deeper than 16.
        unsigned TypeMembers(SymbolType_t iType);

        /// Reads a member. iMember counts from 0. Returns false after the last one.
        bool TypeMember(SymbolType_t iType, unsigned iMember, SymbolMember_t * pMember);

        /// Returns the fundamental type of a value. Returns BASE_NONE for other types, except for these:
        /// - an enumeration has that of its integer.
        /// - an array of one dimension has that of its element, if the element is of a fundamental type.
        /// - a pointer to char has BASE_CHAR.
        SymbolBase_e TypeBase(SymbolType_t iType);

        /// Copies the next lines of a section, each with its line end, and returns true. Cuts them to nSize - 1 bytes:
        /// an nSize of 4096 cuts nothing. Returns false at the end of the section, and if the helper fails.
        bool NextDetail(SymbolSection_e eSection, char * szText, std::size_t nSize);

    private:
        /// A handle of the system for the helper.
        using Handle_t = std::intptr_t;
        static constexpr Handle_t NO_HANDLE = -1;

        void End(SymbolEnd_e eEnd);
        void AllowTracing();
        bool Launch();
        bool Greet();
        bool NextByChain();
        bool Ask(SymbolRequest_t Request, SymbolAnswer_t * pAnswer);
        bool AskText(SymbolRequest_t const & Request, char * szText, std::size_t nSize, std::uint64_t * pValue);

        FaultContext_t const * m_pContext = nullptr;
        Handle_t m_hHelper = NO_HANDLE;    // for requests
        Handle_t m_hProcess = NO_HANDLE;   // to end it
        Handle_t m_iProcess = NO_HANDLE;   // its number
        SymbolEnd_e m_eEnd = HELPER_MISSING;
        unsigned m_nWaited = 0;       // milliseconds spent on answers, of SYMBOL_LIMIT
        std::uint32_t m_nAsked = 0;   // requests sent
        unsigned m_iFrame = 0;        // number of the next frame
        unsigned m_iVariable = 0;     // number of the next variable of the last frame returned
        bool m_bServing = false;      // whether the helper waits for memory
        bool m_bTraced = false;       // whether the helper was allowed to trace
        bool m_bLast = false;         // whether the chain of frame pointers ends here
        SymbolFrame_t m_Frame{};      // the last one returned
    };
}
