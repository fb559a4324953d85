// script_fuzz.cpp: operations on texts of any bytes, from a file and from memory.
//
// Tokens are compared with those of a reader that goes byte by byte. The first byte of the input, modulo 64, is the
// number of operations. Each operation takes two bytes. The rest is the text.
#include "fuzz/fuzz_support.h"
#include "zqcore/cscript.h"

#include <tuple>
#include <vector>

namespace
{
    constexpr int OPERATIONS = 8;      // kinds of operations
    constexpr int TOKEN = 0;           // reads a token
    constexpr int FIRST_CHECKED = 6;   // this one and later ones may fail an assertion in a block of memory

    // A script and its last token. One reads the text from a file, the other one from memory.
    struct Reader_s
    {
        Script_c Script;
        std::string sLast = "a";   // at the start a token to search for

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

        // Reads the next token that is no comment into sLast, byte by byte. Then moves back by one byte: the one that
        // ends the token, or at the end of the text the token's last one. Without such a token, empties sLast, and
        // moves back only if the text ends in the first word of a comment.
        void ReadPlainToken(bool bPunctuation)
        {
            std::string sToken;
            char cRead;
            Script.m_bInToken = false;
            do
            {
                cRead = ReadByte();
                sToken += cRead;
                bool const bDelimiter =
                    static_cast<signed char>(cRead) <= 0x20 || (bPunctuation && std::strchr("'\";,", cRead));
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
            sLast = sToken.substr(0, Script_c::TOKEN_SIZE - 1);
            if (sToken.starts_with("//"))
            {
                while (cRead != '\n' && !Script.m_bEndOfFile)
                {
                    cRead = ReadByte();
                }
                sLast.clear();
                if (!Script.m_bEndOfFile)
                {
                    ReadPlainToken(bPunctuation);
                }
            }
        }

        // Does the operation of a number below OPERATIONS. Returns what it read, or whether a search found sLast.
        std::string Step(int iOperation, unsigned char iArgument)
        {
            std::string sBuffer(FuzzFile_c::Get().m_sText.size() + Script_c::TOKEN_SIZE, '?');
            char * const szRead = sBuffer.data();
            switch (iOperation)
            {
            case TOKEN:
                Script.GetToken(szRead, iArgument & 1);
                sLast = szRead;
                return sLast;
            case 1:
                Script.GetSpecific(szRead);
                return szRead;
            case 2:
                Script.GetLine(szRead, 2 + iArgument);
                return szRead;
            case 3:
                return std::to_string(Script.GetInt());
            case 4:
                return std::to_string(Script.RewindAfterToken(sLast.c_str(), iArgument & 1, iArgument & 2));
            case 5:
                Script.SetPosition(iArgument * 3 % (Script.m_iBytesTotal + 2));
                return "";
            case FIRST_CHECKED:
                Script.GetString(szRead, static_cast<int>(sBuffer.size()) - 1, static_cast<char>(iArgument));
                return szRead;
            default:
                return std::to_string(Script.GetFloat());
            }
        }
    };
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    std::string const sSteps = Input.Extract(2 * (Input.Get() % 64u));
    std::string & sText = FuzzFile_c::Get().m_sText = Input.Extract();
    std::vector<char> const dText(sText.begin(), sText.end());   // a block of exactly its size

    Reader_s File, Memory;
    std::string_view sRead(sText);
    bool const bOpens = SkipMark(sRead);
    Require(File.Script.OpenFile("fuzz.txt") == bOpens);
    Memory.Script.OpenMemoryLocation(bOpens ? dText.data() : nullptr, static_cast<int>(bOpens ? dText.size() : 0));
    for (Input_c Steps(sSteps); bOpens && !Steps.IsEmpty();)
    {
        int const iOperation = Steps.Get() % OPERATIONS;
        unsigned char const iArgument = Steps.Get();
        std::string const sOutcome = File.Step(iOperation, iArgument);
        if (iOperation == TOKEN)
        {
            Memory.ReadPlainToken(iArgument & 1);
        }
        else if (iOperation < FIRST_CHECKED)
        {
            Require(Memory.Step(iOperation, iArgument) == sOutcome);
        }
        else
        {
            Memory.Place() = File.Place();
        }
        Require(File.sLast == Memory.sLast);
        Require(File.Place() == Memory.Place());
    }
    File.Script.CloseFile();
    return 0;
}
