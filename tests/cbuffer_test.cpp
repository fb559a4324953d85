#include "tests/media_fixture.h"
#include "zqcore/cbuffer.h"
#include "zqcore/cfile.h"

namespace
{
    std::string BytesOf(Buffer_c const & Buffer)
    {
        return std::string(static_cast<char const *>(Buffer.GetBufferData()), Buffer.GetBufferDataLength());
    }
}

using Buffers = MediaTest;

TEST_F(Buffers, AnArrayGrowsByWhatIsAppended)
{
    ArrayBuffer_c Buffer;
    EXPECT_EQ(Buffer.GetBufferData(), nullptr);
    std::string const sFirst(600, 'a'), sSecond(600, 'b');
    EXPECT_FALSE(Buffer.ExpandBuffer("x", 0));
    EXPECT_EQ(Buffer.GetCapacity(), 0);
    EXPECT_TRUE(Buffer.ExpandBuffer(sFirst.data(), 600));
    EXPECT_EQ(Buffer.GetCapacity(), 1024);
    EXPECT_TRUE(Buffer.ExpandBuffer(sSecond.data(), 600));
    EXPECT_EQ(BytesOf(Buffer), sFirst + sSecond);
    EXPECT_EQ(Buffer.GetCapacity(), 2048);
    EXPECT_TRUE(Buffer.ExpandBuffer(Buffer.begin() + 599, 601)) << "its own bytes";
    EXPECT_EQ(BytesOf(Buffer), sFirst + sSecond + "a" + sSecond);
    EXPECT_TRUE(Buffer.ExpandBuffer(Buffer.begin() + 1199, 602)) << "its own bytes again, past the capacity";
    EXPECT_EQ(BytesOf(Buffer), sFirst + sSecond + "a" + sSecond + "ba" + sSecond);
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Buffer.ExpandBuffer(nullptr, 1)); }), "pBytes != nullptr");
    EXPECT_EQ(
        FailedConditions([&] { EXPECT_FALSE(Buffer.ExpandBuffer("x", 0xFFFFFFFF)); }), "nBytes <= MAX_BYTES - nOld");
    EXPECT_EQ(Buffer.GetBufferDataLength(), 2403u);
}

TEST_F(Buffers, AFileLendsItsContentsAndATextItself)
{
    Make({ { "a.txt", "contents" } });
    Scan();
    File_c * const pFile = FileOpen("a.txt");
    {
        FileBuffer_c const Buffer(pFile), Second(pFile);
        EXPECT_EQ(pFile->GetOpensCount(), 3);
        EXPECT_EQ(BytesOf(Buffer), "contents");
        EXPECT_EQ(Buffer.GetBufferData(), Second.GetBufferData());
    }
    EXPECT_EQ(pFile->GetOpensCount(), 1);
    FileClose(pFile);
    fs::remove(m_Folder.Join("a.txt"));
    auto const fnGone = [&]
    {
        FileBuffer_c const Gone(pFile), None(nullptr);
        EXPECT_EQ(BytesOf(Gone), "");
        EXPECT_EQ(BytesOf(None), "");
    };
    EXPECT_EQ(FailedConditions(fnGone), "FileOpen ( m_pFile ) & FileOpen ( m_pFile )");
    EXPECT_EQ(pFile->GetOpensCount(), 0);

    char const szText[] = "text";
    EXPECT_EQ(BytesOf(StringBuffer_c(szText)), "text");
    EXPECT_EQ(StringBuffer_c(szText).GetBufferData(), szText);
    EXPECT_EQ(BytesOf(StringBuffer_c("")), "");
    EXPECT_EQ(FailedConditions([] { EXPECT_EQ(BytesOf(StringBuffer_c(nullptr)), ""); }), "sText != nullptr");
}
