#include "zqcore/ctokenize.h"

#include <cstring>
#include <string_view>

namespace
{
    // Adds the pieces of the text. The text is a copy, because the caller's may be an element of dOut.
    template <typename ARRAY>
    void Split(String_T<256> const sText, ARRAY & dOut,   // NOLINT(performance-unnecessary-value-param)
        char const * szSeparators)
    {
        for (char const * szRest = sText; *szRest;)
        {
            std::size_t const nPiece = std::strcspn(szRest, szSeparators);
            if (nPiece > 0)
            {
                dOut.Add(std::string_view(szRest, nPiece));
            }
            szRest += nPiece;
            szRest += *szRest != '\0';
        }
    }

    // One separator as a text.
    struct Separator_s
    {
        char szText[2];
    };
}

void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 10, 0> & dOut, char const * szSeparators)
{
    Split(sText, dOut, szSeparators ? szSeparators : " ");
}

void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 1024, 0> & dOut, char const * szSeparators)
{
    Split(sText, dOut, szSeparators ? szSeparators : " ");
}

void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 10, 0> & dOut, char cSeparator)
{
    Split(sText, dOut, Separator_s{ { cSeparator, '\0' } }.szText);
}

void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 1024, 0> & dOut, char cSeparator)
{
    Split(sText, dOut, Separator_s{ { cSeparator, '\0' } }.szText);
}
