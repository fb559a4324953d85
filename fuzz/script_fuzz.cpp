// script_fuzz.cpp: operations on texts of any bytes, from a file and from memory. Tokens are compared with those of a
// reader that goes byte by byte.
//
// The first byte is the number of operations, each of which takes two bytes; the rest is the text.
#include "fuzz/fuzz_support.h"
#include "zqcore/cscript.h"

#include <tuple>
#include <vector>

namespace
{
    // One of two scripts over the same text, which do the same.
    struct Reader_s
    {
        Script_c Script;
        std::string sLast = "a";   // the last token

        auto Place() { return std::tie(Script.m_bInToken, Script.m_iLines, Script.m_iBytesRead, Script.m_bEndOfFile); }

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

        // Reads a token one byte at a time, and leaves the byte that ends it unread.
        void ReadPlainToken(bool bPunctuation)
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
                if (!Script.m_bEndOfFile)
                {
                    ReadPlainToken(bPunctuation);
                }
            }
        }

        // Does one operation. Returns what it read.
        std::string Step(unsigned char iWhat, unsigned char iArgument)
        {
            std::string sBuffer(FuzzFile_c::Get().m_sText.size() + 300, '?');
            char * const p = sBuffer.data();
            switch (iWhat % 8)
            {
            case 0:
                Script.GetToken(p, iArgument & 1);
                sLast = p;
                return sLast;
            case 1:
                Script.GetSpecific(p);
                return p;
            case 2:
                Script.GetLine(p, 2 + iArgument);
                return p;
            case 3:
                return std::to_string(Script.GetInt());
            case 4:
                return std::to_string(Script.RewindAfterToken(sLast.c_str(), iArgument & 1, iArgument & 2));
            case 5:
                Script.SetPosition(iArgument * 3 % (Script.m_iBytesTotal + 2));
                return "";
            case 6:
                Script.GetString(p, static_cast<int>(sBuffer.size()) - 1, static_cast<char>(iArgument));
                return p;
            default:
                return std::to_string(Script.GetFloat());
            }
        }
    };
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    std::size_t const nSteps = Input.Get() % 64u;
    std::string const sSteps = Input.Extract(2 * nSteps);
    std::string & sText = FuzzFile_c::Get().m_sText = Input.Extract();
    std::vector<char> const dText(sText.begin(), sText.end());   // a block of exactly its size

    Reader_s File, Memory;
    std::string_view sRead(sText);
    bool const bOpens = !IsRefused(sRead);
    Require(File.Script.OpenFile("fuzz.txt") == bOpens);
    Memory.Script.OpenMemoryLocation(bOpens ? dText.data() : nullptr, static_cast<int>(bOpens ? dText.size() : 0));
    for (Input_c Steps(sSteps); bOpens && !Steps.IsEmpty();)
    {
        unsigned char const cWhat = Steps.Get(), cArgument = Steps.Get();
        std::string const sOutcome = File.Step(cWhat, cArgument);
        if (cWhat % 8 == 0)
        {
            Memory.ReadPlainToken(cArgument & 1);
        }
        else if (cWhat % 8 < 6)
        {
            Require(Memory.Step(cWhat, cArgument) == sOutcome);
        }
        else   // may fail an assertion in a block of memory
        {
            Memory.Place() = File.Place();
        }
        Require(File.sLast == Memory.sLast);
        Require(File.Place() == Memory.Place());
    }
    File.Script.CloseFile();
    return 0;
}
