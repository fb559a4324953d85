#include "tools/zqtool/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace
{
    // Sets nLetter to the character that a non-empty text begins with. Returns its bytes, 0 if it is not UTF-8.
    std::size_t ReadLetter(std::string_view sText, std::uint32_t & nLetter)
    {
        auto const Byte = [&](std::size_t i)
        { return static_cast<std::uint32_t>(static_cast<unsigned char>(sText[i])); };
        std::uint32_t const nLead = Byte(0);
        nLetter = nLead;
        if (nLead < 0x80)
        {
            return 1;
        }
        std::size_t const nBytes = nLead >= 0xF0 ? 4 : nLead >= 0xE0 ? 3 : 2;
        if (nLead < 0xC2 || nLead > 0xF4 || sText.size() < nBytes)
        {
            return 0;
        }
        nLetter = nLead & (0x7Fu >> nBytes);
        for (std::size_t i = 1; i < nBytes; ++i)
        {
            if ((Byte(i) & 0xC0) != 0x80)
            {
                return 0;
            }
            nLetter = nLetter << 6 | (Byte(i) & 0x3F);
        }
        constexpr std::uint32_t LOWEST[] = { 0, 0, 0x80, 0x800, 0x10000 };
        bool const bSurrogate = nLetter >= 0xD800 && nLetter <= 0xDFFF;
        return nLetter < LOWEST[nBytes] || nLetter > 0x10FFFF || bSurrogate ? 0 : nBytes;
    }

    // Returns the bytes of that character; 0 if it is invalid or a control character.
    std::size_t LetterLength(std::string_view sText)
    {
        std::uint32_t nLetter = 0;
        std::size_t const nBytes = ReadLetter(sText, nLetter);
        bool const bControl = nLetter < 0x20 || (nLetter >= 0x7F && nLetter < 0xA0);
        // Line ends and changes of writing direction.
        bool const bTurnsText = (nLetter >= 0x2028 && nLetter <= 0x202E) || (nLetter >= 0x2066 && nLetter <= 0x2069);
        return bControl || bTurnsText ? 0 : nBytes;
    }

    bool IsPlainInJson(char c)
    {
        return c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
    }

    void AppendUnit(std::string & sTo, std::uint32_t nUnit)
    {
        char szUnit[8];
        std::snprintf(szUnit, sizeof szUnit, "\\u%04x", static_cast<unsigned>(nUnit & 0xFFFF));
        sTo += szUnit;
    }

    void AppendEscaped(std::string & sTo, std::uint32_t nLetter)
    {
        constexpr std::string_view NAMED = "\b\f\n\r\t\"\\", NAMES = "bfnrt\"\\";
        std::size_t const iName = nLetter < 0x80 ? NAMED.find(static_cast<char>(nLetter)) : std::string_view::npos;
        if (iName != std::string_view::npos)
        {
            sTo += '\\';
            sTo += NAMES[iName];
        }
        else if (nLetter < 0x10000)
        {
            AppendUnit(sTo, nLetter);
        }
        else
        {
            AppendUnit(sTo, 0xD7C0 + (nLetter >> 10));
            AppendUnit(sTo, 0xDC00 + (nLetter & 0x3FF));
        }
    }
}

std::string Printable(std::string_view sText)
{
    std::string sOut;
    while (!sText.empty())
    {
        std::size_t const nBytes = LetterLength(sText);
        sOut += nBytes ? sText.substr(0, nBytes) : "\xEF\xBF\xBD";
        sText.remove_prefix(nBytes ? nBytes : 1);
    }
    return sOut;
}

std::string PrintableLine(std::string_view sText)
{
    std::string sOut;
    for (char const c : sText)
    {
        sOut += c == '\t' ? std::string_view("    ") : std::string_view(&c, 1);
    }
    return Printable(sOut);
}

std::string HtmlEscaped(std::string_view sText)
{
    std::string sOut;
    for (char const c : sText)
    {
        switch (c)
        {
        case '&':
            sOut += "&amp;";
            break;
        case '<':
            sOut += "&lt;";
            break;
        case '>':
            sOut += "&gt;";
            break;
        case '"':
            sOut += "&quot;";
            break;
        default:
            sOut += c;
        }
    }
    return sOut;
}

void AppendJsonQuoted(std::string & sTo, std::string_view sText)
{
    constexpr std::uint32_t REPLACEMENT = 0xFFFD;
    sTo += '"';
    while (!sText.empty())
    {
        auto const itEscaped = std::find_if_not(sText.begin(), sText.end(), IsPlainInJson);
        sTo.append(sText.begin(), itEscaped);
        sText.remove_prefix(static_cast<std::size_t>(itEscaped - sText.begin()));
        if (!sText.empty())
        {
            std::uint32_t nLetter = 0;
            std::size_t const nBytes = ReadLetter(sText, nLetter);
            AppendEscaped(sTo, nBytes ? nLetter : REPLACEMENT);
            sText.remove_prefix(nBytes ? nBytes : 1);
        }
    }
    sTo += '"';
}

std::string JsonQuoted(std::string_view sText)
{
    std::string sOut;
    AppendJsonQuoted(sOut, sText);
    for (std::size_t i = 0; (i = sOut.find('<', i)) != std::string::npos;)
    {
        sOut.replace(i, 1, "\\u003c");
    }
    return sOut;
}
