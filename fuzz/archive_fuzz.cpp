// archive_fuzz.cpp: archives of any bytes, read by any calls.
//
// The first byte tells how many bytes of calls follow, one byte each; the rest is the archive.
#include "fuzz/fuzz_support.h"
#include "tests/archive_support.h"

namespace
{
    void ReadText(Serializeable_c & Archive, int nSize)
    {
        std::string sBuffer(static_cast<std::size_t>(nSize), '\1');   // of exactly the size, for the checker
        Archive.SerializeString(sBuffer.data(), nSize);
        Require(Archive.IsFailed() || sBuffer.find('\0') != std::string::npos);
    }

    void Call(Serializeable_c & Archive, unsigned char cCall)
    {
        static char const * const s_dNames[] = { "", "a", "A", "chunk" };
        int iValue = 0;
        double fValue = 0;
        __m128 vValue = _mm_setzero_ps();
        char const * const szName = s_dNames[cCall >> 3 & 3];
        int const nSize = (cCall >> 3) + 1;
        switch (cCall & 7)
        {
        case 0:
            Archive.Serialize(iValue).Serialize(fValue);
            break;
        case 1:
            return ReadText(Archive, nSize);
        case 2:
            Archive.Serialize(nullptr, nSize);
            break;
        case 3:
            Archive.ChunkBegin(szName);
            break;
        case 4:
            return Archive.ChunkEnd(szName);
        case 5:
            return Archive.Label(szName);
        case 6:
            return Archive.LabelCrc32(szName);
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
    MemoryFile_c File({ reinterpret_cast<char const *>(pData) + 1 + nCalls, nSize - 1 - nCalls });
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
