// archive_fuzz.cpp: archives of any bytes, read by any calls.
//
// The first byte is the number of calls that follow, one byte each. The rest is the archive.
#include "fuzz/fuzz_support.h"
#include "tests/archive_support.h"

#include "zqcore/cserializestd.h"

#include <map>

namespace
{
    constexpr std::uint32_t VERSION = 0x00010003;

    void ReadText(Serializeable_c & Archive, int nSize)
    {
        std::string sBuffer(static_cast<std::size_t>(nSize), '\1');   // of exactly the size, for the checker
        Archive.SerializeString(sBuffer.data(), nSize);
        Require(Archive.IsFailed() || sBuffer.find('\0') != std::string::npos);
    }

    void ReadType(Serializeable_c & Archive, int iType)
    {
        __m128 Vector = _mm_setzero_ps();
        std::string sText;
        std::vector<std::optional<double>> dValues;
        std::map<std::string, std::vector<bool>> dMap;
        switch (iType & 7)
        {
        case 0:
            Archive.Serialize(sText);
            break;
        case 1:
            Archive.Serialize(dValues);
            break;
        case 2:
            Archive.Serialize(dMap);
            break;
        case 3:
            Require(Archive.SerializeVersion("type", iType) <= iType);
            break;
        default:
            Archive.SerializeVector3(Vector);
        }
    }

    // Makes the call that a byte selects: bits 0 to 2 the function, the others its size, name or type.
    void Call(Serializeable_c & Archive, unsigned char cCall)
    {
        static char const * const s_dNames[] = { "", "a", "A", "chunk" };
        int iValue = 0;
        double fValue = 0;
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
            return ReadType(Archive, nSize);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    std::string const sCalls = Input.Extract(Input.Get());
    MemoryFile_c File(Input.Extract());
    FileOpen(&File);
    Readable_c Archive(&File, VERSION);
    SurvivesWithoutAbort(
        [&]
        {
            bool const bOpen = Archive.Open();
            Require(!bOpen || Archive.GetPosition() == 4);
            Require(!bOpen || Archive.GetVersion() <= VERSION);
            for (char const cCall : sCalls)
            {
                bool const bFailed = Archive.IsFailed();
                int const iPosition = Archive.GetPosition();
                Call(Archive, static_cast<unsigned char>(cCall));
                Require(Archive.GetPosition() >= 0);
                Require(Archive.GetPosition() <= Archive.GetLength());
                Require(!bFailed || Archive.IsFailed());
                Require(!bFailed || Archive.GetPosition() == iPosition);
            }
        });
    return 0;
}
