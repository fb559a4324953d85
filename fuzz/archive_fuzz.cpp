// archive_fuzz.cpp: archives of any bytes, read by any calls.
//
// The first byte tells how many bytes of calls follow, one byte each; the rest is the archive.
#include "tests/archive_support.h"

#include <cstdlib>

namespace
{
    void Require(bool bAgreed)
    {
        if (!bAgreed)
        {
            std::abort();
        }
    }

    char const * const NAMES[] = { "", "a", "A", "chunk" };

    void ReadText(Serializeable_c & Archive, int nSize)
    {
        std::string sBuffer(static_cast<std::size_t>(nSize), '\1');   // of exactly the size, for the checker
        Archive.SerializeString(sBuffer.data(), nSize);
        bool const bTerminated = sBuffer.find('\0') != std::string::npos;
        Require(Archive.IsFailed() || bTerminated);
    }

    void Call(Serializeable_c & Archive, unsigned char cCall)
    {
        int iValue = 0;
        double fValue = 0;
        __m128 vValue = _mm_setzero_ps();
        char const * const szName = NAMES[cCall >> 3 & 3];
        int const nSize = (cCall >> 3) + 1;
        switch (cCall & 7)
        {
        case 0:
            Archive.Serialize(iValue).Serialize(fValue);
            break;
        case 1:
            ReadText(Archive, nSize);
            break;
        case 2:
            Archive.Serialize(nullptr, nSize);
            break;
        case 3:
            Archive.ChunkBegin(szName);
            break;
        case 4:
            Archive.ChunkEnd(szName);
            break;
        case 5:
            Archive.Label(szName);
            break;
        case 6:
            Archive.LabelCrc32(szName);
            break;
        default:
            Archive.SerializeVector3(vValue);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::size_t const nCalls = nSize > 0 ? pData[0] : 0;
    if (nSize < 1 + nCalls)
    {
        return 0;
    }
    std::string_view const sBytes(reinterpret_cast<char const *>(pData) + 1 + nCalls, nSize - 1 - nCalls);
    MemoryFile_c File(sBytes);
    FileOpen(&File);
    Readable_c Archive(&File, 0x00010003);
    SurvivesWithoutAbort(
        [&]
        {
            Require(!Archive.Open() || (Archive.GetPosition() == 4 && Archive.GetVersion() <= 0x00010003));
            for (std::size_t i = 0; i < nCalls; ++i)
            {
                bool const bFailed = Archive.IsFailed();
                int const iPosition = Archive.GetPosition();
                Call(Archive, pData[1 + i]);
                Require(Archive.GetPosition() >= 0 && Archive.GetPosition() <= Archive.GetLength());
                Require(!bFailed || (Archive.IsFailed() && Archive.GetPosition() == iPosition));
            }
        });
    return 0;
}
