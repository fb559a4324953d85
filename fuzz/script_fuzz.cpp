// script_fuzz.cpp: operations on texts of any bytes, beside a reader that goes byte by byte; from a file and from memory.
//
// The first byte is the number of operations, each of which takes two bytes; the rest is the text.
#include "fuzz/fuzz_support.h"
#include "zqcore/cscript.h"

#include <algorithm>
#include <vector>

namespace
{
    /// Reads as the class says that it reads: one byte at a time, with the byte that ends a token put back.
    class PlainScript_c
    {
    public:
        explicit PlainScript_c(std::string const & sText)
            : m_sText(sText)
        {}

        bool operator==(Script_c const & Other) const
        {
            return m_bInToken == Other.m_bInToken && iLines == Other.m_iLines && iRead == Other.m_iBytesRead
                   && bEnd == Other.m_bEndOfFile;
        }

        char Read()
        {
            if (iRead == static_cast<int>(m_sText.size()))
            {
                bEnd = true;
                return '\0';
            }
            char const c = m_sText[static_cast<std::size_t>(iRead++)];
            iLines += c == '\n';
            return c;
        }

        static bool IsDelimiter(char c, bool bPunctuation)
        {
            return static_cast<signed char>(c) <= 0x20 || (bPunctuation && std::strchr("'\";,", c));
        }

        std::string Token(bool bPunctuation)
        {
            for (;;)
            {
                std::string sScratch;
                char c;
                m_bInToken = false;
                do
                {
                    sScratch += c = Read();
                    if (!IsDelimiter(c, bPunctuation))
                    {
                        m_bInToken = true;
                    }
                    else if (sScratch.size() > 1)
                    {
                        --iRead;
                        break;
                    }
                    else
                    {
                        sScratch.clear();
                    }
                }
                while (!bEnd);
                sScratch = sScratch.substr(0, sScratch.empty() ? 0 : sScratch.size() - 1);
                if (!sScratch.starts_with("//"))
                {
                    return sScratch.substr(0, 259);
                }
                while (c != '\n' && !bEnd)
                {
                    c = Read();
                }
                if (bEnd)
                {
                    return "";
                }
            }
        }

        std::string Word()
        {
            std::string sWord;
            char c;
            do
            {
                c = Read();
            }
            while (IsDelimiter(c, false) && !bEnd);
            for (; !IsDelimiter(c, false); c = Read())
            {
                sWord += c;
            }
            return sWord.substr(0, 259);
        }

        std::string Line(std::size_t nMax)
        {
            char c;
            do
            {
                c = Read();
                if (c == '\n' || c == '\r')
                {
                    return "";
                }
            }
            while (!bEnd && (c == ' ' || c == '\t'));
            std::string sLine(1, c);
            while (!bEnd && sLine.size() < nMax - 1)
            {
                c = Read();
                if (c == '\n' || c == '\r' || c == '\0')
                {
                    break;
                }
                sLine += c;
            }
            return sLine.c_str();
        }

        std::string Quoted(char cQuote)
        {
            bool bSlash = false;
            char c = Read();
            while (c != cQuote && !bEnd && (c == '/' || IsDelimiter(c, false)))
            {
                while (c == '/' && bSlash && !bEnd && Read() != '\n')
                {}
                bSlash = bSlash || c == '/';
                c = Read();
            }
            std::string sText;
            while (c == cQuote && !bEnd)
            {
                char const cNext = Read();
                if (cNext == cQuote || bEnd)
                {
                    break;
                }
                sText += cNext;
            }
            return sText.c_str();
        }

        int Integer()
        {
            std::string sDigits;
            auto const IsDigit = [this] { return m_sText[Here()] && std::strchr("0123456789.-", m_sText[Here()]); };
            while (!bEnd && Here() < m_sText.size() && !IsDigit())
            {
                Read();
            }
            while (!bEnd && (Here() == m_sText.size() || IsDigit()))
            {
                sDigits += Read();
            }
            long const iLong = std::strtol(sDigits.substr(0, 259).c_str(), nullptr, 10);
            return static_cast<int>(std::max<long>(std::min<long>(iLong, 2147483647), -2147483647 - 1));
        }

        bool Rewind(std::string const & sToken, bool bFromStart, bool bWhole)
        {
            int const iFormer = iRead;
            bool const bFormer = bEnd;
            iRead = bFromStart ? 0 : iRead;
            bEnd = !bFromStart && bEnd;
            bool bFound = false;
            if (bWhole)
            {
                while (!bFound && !bEnd)
                {
                    bFound = Token(false) == sToken;
                }
            }
            else
            {
                std::string const sRest = m_sText.substr(Here());
                char const * const pFound = std::strstr(sRest.c_str(), sToken.c_str());
                bFound = pFound && pFound < sRest.c_str() + sRest.size();
                if (bFound)
                {
                    iRead += static_cast<int>(pFound - sRest.c_str());
                    Token(false);
                }
            }
            iRead = bFound ? iRead : iFormer;
            bEnd = bFound ? bEnd : bFormer;
            return bFound;
        }

        int iRead = 0, iLines = 0;
        bool bEnd = false;

    private:
        std::size_t Here() const { return static_cast<std::size_t>(iRead); }

        std::string const & m_sText;
        bool m_bInToken = false;
    };

    /// Does the same in both. What may fail an assertion in a block of memory is done in a file alone.
    void Step(
        unsigned char iWhat, unsigned char iArgument, Script_c & Script, PlainScript_c & Plain, std::string & sLast)
    {
        std::vector<char> dBuffer(FuzzFile_c::Get().sText.size() + 300, '?');
        char * const p = dBuffer.data();
        int const nBuffer = static_cast<int>(dBuffer.size());
        switch (iWhat % 8)
        {
        case 0:
            Script.GetToken(p, iArgument & 1);
            Require(p == (sLast = Plain.Token(iArgument & 1)));
            break;
        case 1:
            Script.GetSpecific(p);
            Require(p == Plain.Word());
            break;
        case 2:
            Script.GetLine(p, 2 + iArgument);
            Require(p == Plain.Line(2u + iArgument));
            break;
        case 3:
            Require(Script.GetInt() == Plain.Integer());
            break;
        case 4:
            Require(Script.RewindAfterToken(sLast.c_str(), iArgument & 1, iArgument & 2)
                    == Plain.Rewind(sLast, iArgument & 1, iArgument & 2));
            break;
        case 5:
        {
            int const iPosition = iArgument * 3 % (Script.m_iBytesTotal + 2);
            Script.SetPosition(iPosition);
            Plain.iRead = std::min(iPosition, Script.m_iBytesTotal);
            Plain.bEnd = Plain.bEnd || iPosition > Script.m_iBytesTotal;
            break;
        }
        case 6:
            if (Script.m_sName[0] == 'f')
            {
                Script.GetString(p, nBuffer - 1, static_cast<char>(iArgument));
                Require(p == Plain.Quoted(static_cast<char>(iArgument)));
            }
            break;
        default:
            if (Script.m_sName[0] == 'f')
            {
                auto const fNumber = static_cast<float>(std::atof(Plain.Token(false).c_str()));
                float const fRead = Script.GetFloat();
                Require(fRead == fNumber || (fRead != fRead && fNumber != fNumber));
            }
        }
        Require(Plain == Script);
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::size_t const nSteps = nSize > 0 ? pData[0] % 64u : 0;
    if (nSize < 1 + 2 * nSteps)
    {
        return 0;
    }
    unsigned char const * const pText = pData + 1 + 2 * nSteps;
    std::vector<char> const dText(pText, pData + nSize);   // a block of exactly its size
    std::string & sText = FuzzFile_c::Get().sText;
    sText.assign(dText.begin(), dText.end());

    Script_c File, Memory;
    Require(File.OpenFile("fuzz.txt"));
    char const cNothing = 0;
    Memory.OpenMemoryLocation(dText.empty() ? &cNothing : dText.data(), static_cast<int>(dText.size()));
    for (Script_c * const pScript : { &File, &Memory })
    {
        PlainScript_c Plain(sText);
        std::string sLast = "a";
        for (std::size_t i = 0; i < nSteps; ++i)
        {
            Step(pData[1 + 2 * i], pData[2 + 2 * i], *pScript, Plain, sLast);
        }
    }
    File.CloseFile();
    return 0;
}
