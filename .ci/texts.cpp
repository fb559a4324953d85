// A program that exchanges views, spans and texts with the library, and has its containers.
// It is built with another standard library.
#include "zqcore/zqcore.h"

#include <algorithm>
#include <cstdio>
#include <span>
#include <string>

int main()
{
    constexpr char TEXT[] = "alpha \"be ta\" rest of the line\nlast";
    Script_c Script;
    Script.OpenMemoryLocation(TEXT, static_cast<int>(sizeof TEXT - 1));
    std::string sToken, sQuoted;
    String_T<32> sLine;
    Script.GetToken(sToken, false);
    Script.GetString(sQuoted, '"');
    Script.GetLine(sLine);

    MemoryWriteable_c Writer(1);
    int iStored = 7, iLoaded = 0;
    bool const bOpen = Writer.Open();
    Writer.Serialize(iStored).Serialize(sToken);
    std::byte dMemory[4096];
    std::copy(Writer.GetBytes().begin(), Writer.GetBytes().end(), dMemory);
    std::span const Bytes(dMemory, Writer.GetBytes().size());
    MemoryReadable_c Reader(Bytes, 1);
    std::string sLoaded;
    bool const bRead = bOpen && Reader.Open();
    Reader.Serialize(iLoaded).Serialize(sLoaded);
    Array_T<String_T<32>, 1, 0> dLines;
    dLines.Add("removed");
    dLines.Add(sLine);
    dLines.Delete(0);
    GigaPoolStatic_c Pool(std::span(dMemory), 8);
    bool const bFreed = Pool.Free(Pool.Alloc(false), false);

    std::printf("%s,%s,%s,%i,%s,%i,%08X\n", sToken.c_str(), sQuoted.c_str(), dLines[0].CStr(), iLoaded, sLoaded.c_str(),
        ArchiveCheck(Writer.GetBytes(), 1, {}).nLeft, Crc32(std::as_bytes(std::span("123456789", 9))));
    return bRead && bFreed && !Reader.IsFailed() ? 0 : 1;
}
