#include "tools/zqsymbols/indexfile.h"

#include "tests/test_support.h"

namespace
{
    using namespace zqsymbols;

    std::string const CACHE = "cache/zqcore";
    IndexKey_t const KEY = { .sBuildId = "0123abcd", .nSpan = 0x10000, .nUnitBytes = 5000, .nSymbols = 7 };
    std::string const KEY_FILE = CACHE + "/" + KEY.sBuildId + ".index";
    IndexParts_t const PARTS = { { { 0, 16, 11 }, { 16, 8, 300 } }, { { 4, 4, 1 } } };   // start, bytes and value

    struct IndexFile : testing::Test
    {
        // Returns whether the file is accepted and has what SetUp saved.
        bool Loads(IndexKey_t const & Key = KEY) const
        {
            std::optional<IndexParts_t> const Parts = IndexFolder_c(m_Folder.Join(CACHE)).Load(Key);
            return Parts && FormatIndex(Key, *Parts) == FormatIndex(Key, PARTS);
        }

        TempFolder_c m_Folder;
        std::string const m_sFile = m_Folder.Join(KEY_FILE);
        void SetUp() override { IndexFolder_c(m_Folder.Join(CACHE)).Save(KEY, PARTS); }
    };
}

TEST_F(IndexFile, IsPrivateAndReadAsWritten)
{
    EXPECT_TRUE(Loads());
    EXPECT_EQ(std::filesystem::status(m_sFile).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_Folder.Join(CACHE)), {}), 1);
}

TEST_F(IndexFile, OfAnythingElseIsIgnored)
{
    std::string const sGood = m_Folder.Read(KEY_FILE);
    for (std::size_t i = 0; i < sGood.size(); ++i)
    {
        std::string sBad = sGood;
        sBad[i] = static_cast<char>(sBad[i] ^ 0x10);
        m_Folder.Write(KEY_FILE, sBad);
        EXPECT_FALSE(Loads()) << i;
        m_Folder.Write(KEY_FILE, sGood.substr(0, i));
        EXPECT_FALSE(Loads()) << i;
    }
    m_Folder.Write(KEY_FILE, sGood);
    EXPECT_TRUE(Loads());
    IndexKey_t Other = KEY;
    ++Other.nUnitBytes;
    EXPECT_FALSE(Loads(Other)) << "made of other debug information";
    IndexParts_t const Unsorted = { { { 16, 8, 300 }, { 0, 16, 11 } }, {} };
    IndexParts_t const Outside = { { { 0xFFFF, 2, 1 } }, {} };
    EXPECT_FALSE(ParseIndex(FormatIndex(KEY, Unsorted), KEY));
    EXPECT_FALSE(ParseIndex(FormatIndex(KEY, Outside), KEY));
    std::filesystem::permissions(m_sFile, std::filesystem::perms::all);
    EXPECT_FALSE(Loads()) << "others may have written it";
    std::filesystem::rename(m_sFile, m_sFile + "x");
    std::filesystem::create_symlink(m_sFile + "x", m_sFile);
    EXPECT_FALSE(Loads());
}

TEST_F(IndexFile, TheOldestMakeRoom)
{
    IndexFolder_c const Indices(m_Folder.Join(CACHE));
    IndexParts_t const Big = { std::vector<IndexRange_t>(1 << 20, IndexRange_t{ 0, 1, 0 }), {} };   // 16 MiB
    auto const Save = [&](std::string const & sBuildId) { Indices.Save({ sBuildId, 1, 1, 1 }, Big); };
    for (char const * szBuildId : { "a", "b", "c" })
    {
        Save(szBuildId);
    }
    std::filesystem::last_write_time(
        m_Folder.Join(CACHE + "/b.index"), std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    Save("d");
    std::string sLeft;
    for (char const * szName : { "a", "b", "c", "d" })
    {
        sLeft += std::filesystem::exists(m_Folder.Join(CACHE + "/" + szName + ".index")) ? szName : "";
    }
    EXPECT_EQ(sLeft, "acd");
}
