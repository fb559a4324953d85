// textparser_fuzz.cpp: texts of any bytes under any rules, beside a tokenizer that goes byte by byte.
//
// The first byte is the number of rules, each of which takes three bytes; the rest is the text.
#include "fuzz/fuzz_support.h"
#include "zqcore/ctextparser.h"

#include <bitset>
#include <vector>

namespace
{
    using Set_t = std::bitset<256>;

    /// Six sets and a cursor, and nothing else.
    class PlainParser_c
    {
    public:
        explicit PlainParser_c(std::string const & sText)
            : m_sText(sText)
        {
            Set(m_WordFirst, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_");
            Set(m_WordRest, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789");
            Set(m_String, "\"");
            Set(m_NumberFirst, "0123456789+-");
            Set(m_NumberRest, "0123456789.");
            for (unsigned i = 0x21; i < 256; ++i)
            {
                m_Symbol[i] = !(m_WordFirst[i] && i != '_') && !m_String[i] && !m_NumberFirst[i];
            }
        }

        void SetRule(unsigned iFirst, unsigned iLast, int iRule)
        {
            Set_t * const dAdd[] = { nullptr, &m_WordFirst, &m_WordRest, &m_String, &m_NumberFirst, &m_NumberRest,
                &m_Symbol, nullptr };
            for (unsigned i = iFirst; i <= iLast && iRule >= 1 && iRule <= 7; ++i)
            {
                if (iRule != 2 && iRule != 5)
                {
                    m_WordFirst[i] = m_String[i] = m_NumberFirst[i] = m_Symbol[i] = false;
                }
                if (iRule == 6)
                {
                    m_WordRest[i] = m_NumberRest[i] = false;
                }
                if (dAdd[iRule])
                {
                    (*dAdd[iRule])[i] = true;
                }
            }
        }

        /// The kind of the next token, 0 at the end, and its text.
        int Next(std::string & sToken)
        {
            sToken.clear();
            while (More() && !In(m_WordFirst) && !In(m_String) && !In(m_NumberFirst) && !In(m_Symbol))
            {
                ++m_nPos;
            }
            if (!More())
            {
                return 0;
            }
            int const iKind = In(m_String) ? 2 : In(m_WordFirst) ? 1 : In(m_NumberFirst) ? 3 : 4;
            if (iKind != 2)
            {
                sToken += m_sText[m_nPos];
            }
            ++m_nPos;
            if (iKind == 2)
            {
                ReadString(sToken);
            }
            while (More() && iKind != 2 && iKind != 4 && In(iKind == 1 ? m_WordRest : m_NumberRest))
            {
                sToken += m_sText[m_nPos++];
            }
            return iKind;
        }

    private:
        static void Set(Set_t & Chars, char const * szChars)
        {
            for (; *szChars; ++szChars)
            {
                Chars[static_cast<unsigned char>(*szChars)] = true;
            }
        }

        bool More(std::size_t nAhead = 0) const { return m_nPos + nAhead < m_sText.size(); }
        bool In(Set_t const & Chars, std::size_t nAhead = 0) const
        {
            return Chars[static_cast<unsigned char>(m_sText[m_nPos + nAhead])];
        }

        void ReadString(std::string & sToken)
        {
            while (More())
            {
                if (In(m_String))
                {
                    ++m_nPos;
                    if (!More() || !In(m_String))
                    {
                        return;
                    }
                }
                sToken += m_sText[m_nPos++];
            }
        }

        std::string const & m_sText;
        std::size_t m_nPos = 0;
        Set_t m_WordFirst, m_WordRest, m_String, m_NumberFirst, m_NumberRest, m_Symbol;
    };

    void Compare(SimpleTextParser_c & Parser, PlainParser_c Plain)
    {
        for (;;)
        {
            std::string sToken;
            int const iKind = Plain.Next(sToken);
            Require(Parser.ParseNext() == (iKind != 0));
            Require(Parser.IsWord() == (iKind == 1) && Parser.IsString() == (iKind == 2)
                    && Parser.IsNumber() == (iKind == 3) && Parser.IsSymbol() == (iKind == 4));
            switch (iKind)
            {
            case 0:
                return;
            case 1:
                Require(std::string(Parser.GetWord()) == sToken.substr(0, 511).c_str());
                break;
            case 2:
                Require(std::string(Parser.GetString()) == sToken.substr(0, 24575).c_str());
                break;
            case 3:
            {
                auto const fNumber = static_cast<float>(std::atof(sToken.substr(0, 127).c_str()));
                Require(Parser.GetNumber() == fNumber || fNumber != fNumber);
                break;
            }
            default:
                Require(Parser.GetSymbol() == sToken[0]);
            }
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::size_t const nRules = nSize > 0 ? pData[0] % 16u : 0;
    if (nSize <= 1 + 3 * nRules)
    {
        return 0;
    }
    std::size_t const nText = nSize - 1 - 3 * nRules;
    std::vector<char> const dText(pData + nSize - nText, pData + nSize);   // a block of exactly its size
    std::string const sText(dText.begin(), dText.end());
    SimpleTextParser_c Parser;
    PlainParser_c Plain(sText);
    for (unsigned char const * p = pData + 1; p < pData + 1 + 3 * nRules; p += 3)
    {
        int const iRule = p[2] % 9;
        Parser.SetCharacterRule(
            static_cast<char>(p[0]), static_cast<char>(p[1]), static_cast<CharacterParsingRule_e>(iRule));
        Plain.SetRule(p[0], p[1], iRule);
    }
    Require(Parser.Open(dText.data(), static_cast<int>(nText)));
    Compare(Parser, Plain);
    Parser.Close();
    Require(Parser.Open(dText.data(), dText.data() + nText));
    Compare(Parser, Plain);
    return 0;
}
