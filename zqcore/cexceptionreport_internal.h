// cexceptionreport_internal.h: the parts of the crash report's writer. All of it belongs to the one thread that writes,
// takes nothing from the heap and waits for no lock.
#pragma once

#include "platform/compiler.h"
#include "platform/symbols.h"

#include <cstddef>
#include <cstdint>

namespace exceptionreport
{
    inline constexpr std::size_t LINE_SIZE = 4096;   // of a line of the call stack, of the source, of the dialog's text
    inline constexpr std::size_t SYMBOL_SIZE = 2048;   // of a variable's text
    inline constexpr std::size_t NAME_SIZE = 1024;     // of a function's, a variable's or a file's name
    inline constexpr std::size_t STACK_FRAMES = 256;   // of a call stack; those farther out are left out

    /// A text of a fixed size that is cut when it is full.
    class Text_c
    {
    public:
        Text_c(char * szText, std::size_t nSize);

        void Add(char const * fmt, ...) ZQ_PRINTF(2, 3);

        /// Appends a text from outside, such as a name, escaped but for its tabs; all of it, or its first nMost bytes.
        void AddShown(char const * szShown, std::size_t nMost = SIZE_MAX);

        /// Appends an end, for which the text is cut if need be.
        void AddEnd(char const * szEnd);
        bool IsFull() const { return m_nLength + 1 >= m_nSize; }
        std::size_t GetLength() const { return m_nLength; }
        char const * Get() const { return m_szText; }

        /// Cuts the text at a length that it had.
        void CutAt(std::size_t nLength);

    private:
        char * m_szText;
        std::size_t m_nSize;
        std::size_t m_nLength = 0;
    };

    /// A whole source file, in pages, for as long as the object lives. Only lines that end in CR LF are lines.
    class SourceFile_c
    {
    public:
        explicit SourceFile_c(char const * szPath);
        ~SourceFile_c();
        SourceFile_c(SourceFile_c const &) = delete;
        SourceFile_c & operator=(SourceFile_c const &) = delete;

        /// Copies a line, counted from 1, without its end, cut at nSize - 1 bytes. False if there is no such line.
        bool GetLine(unsigned iLine, char * szText, std::size_t nSize) const;

    private:
        std::size_t m_nBytes = 0;   // set by what gives m_pText
        char const * m_pText;
    };

    /// Writes a text of any length to the report, with what is still a control character in it escaped. Each write waits for the disk, so it should be a whole line.
    void WriteText(Text_c const & Text);

    /// Writes the call stack, with the variables of each frame or without, and adds its lines to the dialog's text.
    void WriteCallStack(plat::Symbols_c & Symbols, bool bVariables, Text_c * pDialogText);

    /// Writes the variables of the frame that the walk gave last.
    void WriteVariables(plat::Symbols_c & Symbols);

    /// Writes the listing of the code around an address.
    void WriteCode(std::uintptr_t Address);
}
