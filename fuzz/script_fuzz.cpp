// script_fuzz.cpp: operations on texts of any bytes, from a file and from memory, tokens beside a reader that goes byte by
// byte.
//
// The first byte is the number of operations, each of which takes two bytes; the rest is the text.
#include "fuzz/fuzz_support.h"
#include "zqcore/cscript.h"

#include <vector>

namespace
{
    /// One of two scripts over the same text, which do the same.
    struct Reader_s
    {
        Script_c Script;
        std::string sLast = "a";   // the last token

        bool operator==(Reader_s const & Other) const
        {
            return sLast == Other.sLast && Script.m_bInToken == Other.Script.m_bInToken
                   && Script.m_iLines == Other.Script.m_iLines && Script.m_iBytesRead == Other.Script.m_iBytesRead
                   && Script.m_bEndOfFile == Other.Script.m_bEndOfFile;
        }

        char ReadByte()
        {
            if (Script.m_iBytesRead == Script.m_iBytesTotal)
            {
                Script.m_bEndOfFile = true;
                return '\0';
            }
            char const c = Script.m_pData[Script.m_iBytesRead++];
            Script.m_iLines += c == '\n';
            return c;
        }

        /// A token read one byte at a time, with the byte that ends it put back.
        void PlainToken(bool bPunctuation)
        {
            std::string sToken;
            char c;
            Script.m_bInToken = false;
            do
            {
                sToken += c = ReadByte();
                bool const bDelimiter =
                    static_cast<signed char>(c) <= 0x20 || (bPunctuation && std::strchr("'\";,", c));
                Script.m_bInToken = Script.m_bInToken || !bDelimiter;
                if (bDelimiter && sToken.size() > 1)
                {
                    --Script.m_iBytesRead;
                    break;
                }
                sToken.resize(bDelimiter ? 0 : sToken.size());
            }
            while (!Script.m_bEndOfFile);
            sToken.resize(sToken.empty() ? 0 : sToken.size() - 1);
            sLast = sToken.substr(0, 259);
            if (sToken.starts_with("//"))
            {
                while (c != '\n' && !Script.m_bEndOfFile)
                {
                    c = ReadByte();
                }
                sLast.clear();
                Script.m_bEndOfFile ? void() : PlainToken(bPunctuation);
            }
        }

        /// Does one operation; what it gives.
        std::string Step(unsigned char iWhat, unsigned char iArgument)
        {
            std::string sBuffer(FuzzFile_c::Get().sText.size() + 300, '?');
            char * const p = sBuffer.data();
            switch (iWhat % 8)
            {
            case 0:
                return Script.GetToken(p, iArgument & 1), sLast = p;
            case 1:
                return Script.GetSpecific(p), p;
            case 2:
                return Script.GetLine(p, 2 + iArgument), p;
            case 3:
                return std::to_string(Script.GetInt());
            case 4:
                return std::to_string(Script.RewindAfterToken(sLast.c_str(), iArgument & 1, iArgument & 2));
            case 5:
                return Script.SetPosition(iArgument * 3 % (Script.m_iBytesTotal + 2)), "";
            case 6:
                return Script.GetString(p, static_cast<int>(sBuffer.size()) - 1, static_cast<char>(iArgument)), p;
            default:
                return std::to_string(Script.GetFloat());
            }
        }
    };
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::size_t const nSteps = nSize > 0 ? pData[0] % 64u : 0;
    if (nSize < 1 + 2 * nSteps)
    {
        return 0;
    }
    std::vector<char> dText(pData + 1 + 2 * nSteps, pData + nSize);
    FuzzFile_c::Get().sText.assign(dText.begin(), dText.end());
    dText.reserve(1);   // a block of exactly its size, if it has any

    Reader_s File, Memory;
    std::string_view sRead(FuzzFile_c::Get().sText);
    bool const bOpens = !IsRefused(sRead);
    Require(File.Script.OpenFile("fuzz.txt") == bOpens);
    if (!bOpens)
    {
        return 0;
    }
    Memory.Script.OpenMemoryLocation(dText.data(), static_cast<int>(dText.size()));
    for (unsigned char const * p = pData + 1; p < pData + 1 + 2 * nSteps; p += 2)
    {
        std::string const sOutcome = File.Step(p[0], p[1]);
        if (p[0] % 8 == 0)
        {
            Memory.PlainToken(p[1] & 1);
        }
        else if (p[0] % 8 < 6)
        {
            Require(Memory.Step(p[0], p[1]) == sOutcome);
        }
        else   // may fail an assertion in a block of memory
        {
            Memory.Script.m_bInToken = File.Script.m_bInToken;
            Memory.Script.m_iLines = File.Script.m_iLines;
            Memory.Script.m_iBytesRead = File.Script.m_iBytesRead;
            Memory.Script.m_bEndOfFile = File.Script.m_bEndOfFile;
        }
        Require(File == Memory);
    }
    File.Script.CloseFile();
    return 0;
}
