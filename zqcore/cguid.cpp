#include "zqcore/cguid.h"

#include "zqcore/cdebug.h"

#include "platform/bytes.h"
#include "platform/text.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

static_assert(sizeof(plat::Guid_t) == 16);

namespace
{
    constinit std::atomic<bool> g_bGlobalOnly = true;

    constexpr int TEXT_LENGTH = 36;   // 8-4-4-4-12 digits with their dashes (RFC 4122)

    // Warns of every status but GUID_OK, also of one that permits the use. Returns whether an identifier of this status
    // may be used.
    bool CheckStatus(std::uint32_t dwStatus)
    {
        switch (dwStatus & 0xFFFF)   // the result is in the low 16 bits
        {
        case plat::GUID_OK:
            return true;
        case plat::GUID_NO_ADDRESS:
            Warning("Cannot get the hardware address for this computer.");
            break;
        case plat::GUID_LOCAL_ONLY:
            Warning("Warning: Unable to determine your network address.\r\n"
                    "  The UUID generated is unique on this computer only.\r\n"
                    "  It should not be used on another computer.");
            break;
        default:
            Warning("Unable to get a GUID.");
            return false;
        }
        return !g_bGlobalOnly;
    }

    bool IsDashAt(int iChar)
    {
        return iChar == 8 || iChar == 13 || iChar == 18 || iChar == 23;
    }

    // Reads the 16 bytes in their order in the text. Returns false if the text has another form.
    bool BytesFromText(char const * szText, unsigned char (&dBytes)[sizeof(plat::Guid_t)])
    {
        if (!szText || StrLengthMax(szText, TEXT_LENGTH + 1) != TEXT_LENGTH)
        {
            return false;
        }
        int nDigits = 0;
        for (int i = 0; i < TEXT_LENGTH; ++i)
        {
            int const iValue = plat::HexDigitValue(szText[i]);
            if (IsDashAt(i) ? szText[i] != '-' : iValue < 0)
            {
                return false;
            }
            if (!IsDashAt(i))
            {
                unsigned char & Byte = dBytes[nDigits++ / 2];
                Byte = static_cast<unsigned char>(Byte << 4 | iValue);
            }
        }
        return true;
    }
}

Guid_c::Guid_c(std::uint32_t dwData1, std::uint16_t iData2, std::uint16_t iData3, std::uint8_t c0, std::uint8_t c1,
    std::uint8_t c2, std::uint8_t c3, std::uint8_t c4, std::uint8_t c5, std::uint8_t c6, std::uint8_t c7)
    : m_guid{ dwData1, iData2, iData3, { c0, c1, c2, c3, c4, c5, c6, c7 } }
{}

Guid_c::Guid_c(std::uint32_t dw0, std::uint32_t dw1, std::uint32_t dw2, std::uint32_t dw3)
    : m_guid{ dw0, static_cast<std::uint16_t>(dw1), static_cast<std::uint16_t>(dw1 >> 16), {} }
{
    for (int i = 0; i < 4; ++i)
    {
        m_guid.Data4[i] = static_cast<std::uint8_t>(dw2 >> 8 * i);
        m_guid.Data4[4 + i] = static_cast<std::uint8_t>(dw3 >> 8 * i);
    }
}

bool Guid_c::Create(Guid_c & Guid)
{
    plat::Guid_t New;
    if (!CheckStatus(plat::GuidCreateSequential(New)))
    {
        return false;
    }
    if (New == plat::Guid_t{})
    {
        Warning("Unable to create new GUID.");
        return false;
    }
    Guid.m_guid = New;
    return true;
}

void Guid_c::SetGlobalOnly(bool bGlobalOnly)
{
    g_bGlobalOnly = bGlobalOnly;
}

bool Guid_c::FromText(char const * szText, Guid_c & Guid)
{
    unsigned char dBytes[sizeof(plat::Guid_t)] = {};
    if (!BytesFromText(szText, dBytes))
    {
        return false;
    }
    Guid.m_guid.Data1 = plat::WordFromBig(dBytes);
    Guid.m_guid.Data2 = static_cast<std::uint16_t>(dBytes[4] << 8 | dBytes[5]);
    Guid.m_guid.Data3 = static_cast<std::uint16_t>(dBytes[6] << 8 | dBytes[7]);
    std::copy_n(dBytes + 8, sizeof Guid.m_guid.Data4, Guid.m_guid.Data4);
    return true;
}

String_T<256> Guid_c::ToText() const
{
    unsigned char dBytes[sizeof(plat::Guid_t)];
    plat::WordToBig(dBytes, m_guid.Data1);
    plat::WordToBig(dBytes + 4, std::uint32_t{ m_guid.Data2 } << 16 | m_guid.Data3);
    std::copy_n(m_guid.Data4, sizeof m_guid.Data4, dBytes + 8);
    String_T<256> sText;
    char * const szText = sText.GetBuffer();
    int nDigits = 0;
    for (int i = 0; i < TEXT_LENGTH; ++i)
    {
        int const iShift = nDigits % 2 == 0 ? 4 : 0;
        szText[i] = IsDashAt(i) ? '-' : plat::LOWER_HEX_DIGITS[dBytes[nDigits++ / 2] >> iShift & 15];
    }
    szText[TEXT_LENGTH] = '\0';
    return sText;
}

String_T<256> Guid_c::ToInitializerText() const
{
    auto const & dLast = m_guid.Data4;
    String_T<256> sText;
    std::snprintf(sText.GetBuffer(), static_cast<std::size_t>(sText.Capacity()),
        "( 0x%lx, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x )",
        static_cast<unsigned long>(m_guid.Data1), unsigned{ m_guid.Data2 }, unsigned{ m_guid.Data3 },
        unsigned{ dLast[0] }, unsigned{ dLast[1] }, unsigned{ dLast[2] }, unsigned{ dLast[3] }, unsigned{ dLast[4] },
        unsigned{ dLast[5] }, unsigned{ dLast[6] }, unsigned{ dLast[7] });
    return sText;
}

bool Guid_c::FromXmlName(char const * text, Guid_c & Guid)
{
    ZQ_ASSERT(text != nullptr);
    return text && FromText(text + (*text == '_' ? 1 : 0), Guid);
}

String_T<256> Guid_c::ToXmlName() const
{
    return String_T<256>("_") + ToText();
}

void GuidObject_c::CreateNewId()
{
    Guid_c New;
    bool const bCreated = Guid_c::Create(New);
    ZQ_ASSERT(bCreated);
    if (bCreated)
    {
        m_Guid = New;
    }
}
