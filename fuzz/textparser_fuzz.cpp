// textparser_fuzz.cpp: texts of any bytes under any rules, compared with a tokenizer that goes byte by byte.
//
// The first byte, modulo 16, is the number of rules. Each rule takes three bytes. The rest is the text.
#include "fuzz/fuzz_support.h"
#include "zqcore/ctextparser.h"

#include <bitset>
#include <cmath>
#include <vector>

namespace
{
    // A tokenizer that knows a set of characters for each rule, and nothing else. The rules have the numbers of
    // CharacterParsingRule_e: 1 starts and 2 continues a word, 3 encloses a string, 4 starts and 5 continues a number,
    // 6 is a symbol, 7 a separator.
    struct PlainParser_s
    {
        std::string const & sText;
        std::size_t nPos = 0;
        std::bitset<256> dSets[8] = {};

        void SetRule(unsigned iFirst, unsigned iLast, int iRule)
        {
            for (unsigned i = iFirst; i <= iLast && iRule >= 1 && iRule <= 7; ++i)
            {
                for (int const iStarts : { 1, 3, 4, 6 })
                {
                    dSets[iStarts][i] = dSets[iStarts][i] && (iRule == 2 || iRule == 5);
                }
                dSets[2][i] = dSets[2][i] && iRule != 6;
                dSets[5][i] = dSets[5][i] && iRule != 6;
                dSets[iRule][i] = iRule != 7;
            }
        }

        bool Is(int iSet) const { return nPos < sText.size() && dSets[iSet][static_cast<unsigned char>(sText[nPos])]; }

        LAST_PARSED Next(std::string & sToken)
        {
            while (nPos < sText.size() && !Is(1) && !Is(3) && !Is(4) && !Is(6))
            {
                ++nPos;
            }
            if (nPos == sText.size())
            {
                return LAST_PARSED_NOTHING;
            }
            LAST_PARSED const eKind = Is(3)   ? LAST_PARSED_STRING
                                      : Is(1) ? LAST_PARSED_WORD
                                      : Is(4) ? LAST_PARSED_NUMBER
                                              : LAST_PARSED_SYMBOL;
            sToken = sText[nPos++];
            while (eKind == LAST_PARSED_WORD ? Is(2) : eKind == LAST_PARSED_NUMBER && Is(5))
            {
                sToken += sText[nPos++];
            }
            for (; eKind == LAST_PARSED_STRING && nPos < sText.size(); sToken += sText[nPos++])
            {
                bool const bDelimiter = Is(3);
                nPos += bDelimiter;
                if (bDelimiter && !Is(3))
                {
                    break;
                }
            }
            return eKind;
        }
    };

    void Compare(SimpleTextParser_c & Parser, PlainParser_s Plain)
    {
        constexpr std::size_t WORD = SimpleTextParser_c::WORD_SIZE - 1, STRING = SimpleTextParser_c::STRING_SIZE - 1,
                              NUMBER = SimpleTextParser_c::NUMBER_SIZE - 1;
        for (LAST_PARSED eKind = LAST_PARSED_SYMBOL; eKind != LAST_PARSED_NOTHING;)
        {
            std::string sToken;
            eKind = Plain.Next(sToken);
            Require(Parser.ParseNext() == (eKind != LAST_PARSED_NOTHING));
            Require(Parser.IsWord() == (eKind == LAST_PARSED_WORD));
            Require(Parser.IsString() == (eKind == LAST_PARSED_STRING));
            Require(Parser.IsNumber() == (eKind == LAST_PARSED_NUMBER));
            Require(Parser.IsSymbol() == (eKind == LAST_PARSED_SYMBOL));
            auto const fNumber = static_cast<float>(std::atof(sToken.substr(0, NUMBER).c_str()));
            Require(!Parser.IsWord() || Parser.GetWord() == std::string(sToken.substr(0, WORD).c_str()));
            Require(!Parser.IsString() || Parser.GetString() == std::string(sToken.substr(1, STRING).c_str()));
            Require(!Parser.IsNumber() || Parser.GetNumber() == fNumber || std::isnan(fNumber));
            Require(!Parser.IsSymbol() || Parser.GetSymbol() == sToken[0]);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    std::string const sRules = Input.Extract(3 * (Input.Get() % 16u)), sAll = Input.Extract();
    std::vector<char> const dText(sAll.begin(), sAll.end());   // a block of exactly its size
    std::string_view sRead(dText.data(), dText.size());
    bool const bOpens = !dText.empty() && SkipMark(sRead);
    std::string const sText(sRead);
    SimpleTextParser_c Parser;
    PlainParser_s Plain{ sText };
    // The rules of a new parser: the first and the last character, and the rule (CharacterParsingRule_e).
    for (auto const & [szRange, iRule] :
        { std::pair{ "!~", 6 }, { "{\xFF", 6 }, { "AZ", 1 }, { "az", 1 }, { "__", 1 }, { "\"\"", 3 }, { "09", 4 },
            { "++", 4 }, { "--", 4 }, { "AZ", 2 }, { "az", 2 }, { "__", 2 }, { "09", 2 }, { "09", 5 }, { "..", 5 } })
    {
        Plain.SetRule(static_cast<unsigned char>(szRange[0]), static_cast<unsigned char>(szRange[1]), iRule);
    }
    for (Input_c Rules(sRules); !Rules.IsEmpty();)
    {
        unsigned char const cFirst = Rules.Get(), cLast = Rules.Get();
        int const iRule = Rules.Get() % 9;
        Parser.SetCharacterRule(
            static_cast<char>(cFirst), static_cast<char>(cLast), static_cast<CharacterParsingRule_e>(iRule));
        Plain.SetRule(cFirst, cLast, iRule);
    }
    Require(Parser.Open(dText.data(), static_cast<int>(dText.size())) == bOpens);
    if (!bOpens)
    {
        return 0;
    }
    Compare(Parser, Plain);
    Parser.Close();
    Require(Parser.Open(dText.data(), dText.data() + dText.size()));
    Compare(Parser, Plain);
    return 0;
}
