#include "platform/linux/maps.h"

#include "platform/linux/reserve.h"
#include "platform/text.h"

namespace plat
{
    namespace
    {
        constexpr int NOTHING = -1;   // no byte

        int DigitValue(int cByte)
        {
            return HexDigitValue(static_cast<char>(cByte));
        }
    }

    Maps_c::Maps_c()
        : m_File(OpenToReadWithReserve("/proc/self/maps"))
    {}

    // Reads the next byte and returns it. Returns NOTHING if there is none or it can't be read.
    int Maps_c::ReadByte()
    {
        if (m_iByte == m_nBytes)
        {
            ssize_t const nRead = m_File.IsOpen() ? read(m_File.Get(), m_dBytes, sizeof m_dBytes) : 0;
            if (nRead <= 0)
            {
                return NOTHING;
            }
            m_nBytes = static_cast<std::size_t>(nRead);
            m_iByte = 0;
        }
        return static_cast<unsigned char>(m_dBytes[m_iByte++]);
    }

    // Reads the next number and returns it. Sets *pNext to the byte after it. Returns 0 if no digit follows.
    std::uint64_t Maps_c::ReadNumber(int nBase, int * pNext)
    {
        std::uint64_t nNumber = 0;
        int cByte = ReadByte();
        for (int iDigit = DigitValue(cByte); iDigit >= 0 && iDigit < nBase; iDigit = DigitValue(cByte))
        {
            nNumber = nNumber * static_cast<unsigned>(nBase) + static_cast<unsigned>(iDigit);
            cByte = ReadByte();
        }
        *pNext = cByte;
        return nNumber;
    }

    bool Maps_c::Next(Mapping_t & Mapping)
    {
        // "start-end rwxp offset major:minor inode   path" (proc(5)). All numbers but the inode are hexadecimal.
        int cByte;
        Mapping.Start = static_cast<std::uintptr_t>(ReadNumber(16, &cByte));
        if (cByte != '-')
        {
            return false;
        }
        Mapping.End = static_cast<std::uintptr_t>(ReadNumber(16, &cByte));
        ReadByte();
        Mapping.bWritable = ReadByte() == 'w';
        for (int iRest = 0; iRest < 3; ++iRest)   // x, p and the blank
        {
            ReadByte();
        }
        Mapping.nOffset = ReadNumber(16, &cByte);
        ReadNumber(16, &cByte);
        ReadNumber(16, &cByte);
        ReadNumber(10, &cByte);
        while (cByte == ' ')
        {
            cByte = ReadByte();
        }
        std::size_t nPath = 0;
        for (; cByte != '\n' && cByte != NOTHING; cByte = ReadByte())
        {
            Mapping.szPath[nPath] = static_cast<char>(cByte);
            nPath += nPath + 1 < sizeof Mapping.szPath ? 1 : 0;
        }
        Mapping.szPath[nPath] = '\0';
        return true;
    }
}
