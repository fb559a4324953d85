// cexceptionreport_internal.h: the parts of the crash report's writer. All of it belongs to the one thread that writes,
// allocates nothing from the heap and waits for no lock.
#pragma once

#include "platform/compiler.h"
#include "platform/symbols.h"

#include <cstddef>
#include <cstdint>

namespace exceptionreport
{
    inline constexpr std::size_t LINE_SIZE = 4096;   // a line of the call stack or of the source, or the dialog's text
    inline constexpr std::size_t SYMBOL_SIZE = 2048;   // a variable's text
    inline constexpr std::size_t NAME_SIZE = 1024;     // the name of a function, a variable or a file
    inline constexpr std::size_t STACK_FRAMES = 256;   // further outer frames are left out

    /// A text of a fixed size that is cut when it is full.
    class Text_c
    {
    public:
        Text_c(char * szText, std::size_t nSize);

        void Add(char const * fmt, ...) ZQ_PRINTF(2, 3);

        /// Appends a text from outside, such as a name, or its first nMost bytes. Control characters except tabs are
        /// escaped.
        void AddShown(char const * szShown, std::size_t nMost = SIZE_MAX);

        /// Appends an ending. The text is cut to make it fit.
        void AddEnd(char const * szEnd);
        bool IsFull() const { return m_nLength + 1 >= m_nSize; }
        std::size_t GetLength() const { return m_nLength; }
        char const * Get() const { return m_szText; }

        /// Cuts the text at a length that it had before.
        void CutAt(std::size_t nLength);

    private:
        char * m_szText;
        std::size_t m_nSize;
        std::size_t m_nLength = 0;
    };

    /// A whole source file in memory pages, until the object is destroyed. Only CR LF ends a line.
    class SourceFile_c
    {
    public:
        explicit SourceFile_c(char const * szPath);
        ~SourceFile_c();
        SourceFile_c(SourceFile_c const &) = delete;
        SourceFile_c & operator=(SourceFile_c const &) = delete;

        /// Copies a line, counted from 1, without its end, cut at nSize - 1 bytes. Returns false if there is no such
        /// line.
        bool GetLine(unsigned iLine, char * szText, std::size_t nSize) const;

    private:
        std::size_t m_nBytes = 0;   // set together with m_pText
        char const * m_pText;
    };

    /// Writes a text of any length to the report and escapes control characters that are left in it. Each write waits
    /// for the disk, so the text should be a whole line or more.
    void WriteText(Text_c const & Text);

    /// Writes the call stack, with or without the variables of each frame. Adds its lines to the dialog's text.
    void WriteCallStack(plat::Symbols_c & Symbols, bool bVariables, Text_c * pDialogText);

    /// Writes the variables of the frame that the walk returned last.
    void WriteVariables(plat::Symbols_c & Symbols);

    /// Writes the listing of the code around an address.
    void WriteCode(std::uintptr_t Address);
}
