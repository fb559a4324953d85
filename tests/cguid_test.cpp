#include "zqcore/cguid.h"

#include "platform/netaddress.h"
#include "tests/machine_support.h"

#include <iterator>
#include <set>
#include <sstream>
#include <unordered_set>

namespace
{
    using Address_t = unsigned char (&)[plat::NET_ADDRESS_SIZE];

    constexpr unsigned char CARD_ADDRESS[plat::NET_ADDRESS_SIZE] = { 0x10, 0x22, 0x33, 0x44, 0x55, 0x66 };

    plat::NetAddress_e g_eAddress;   // the result of TestAddress, which finds CARD_ADDRESS unless it is Missing
    plat::NetAddress_e TestAddress(Address_t dAddress)
    {
        if (g_eAddress != plat::NetAddress_e::Missing)
        {
            std::ranges::copy(CARD_ADDRESS, dAddress);
        }
        return g_eAddress;
    }

    // Status and identifier that the test's source returns.
    std::uint32_t g_dwStatus;
    plat::Guid_t g_GuidOfSource;

    class GuidTest : public testing::Test
    {
    protected:
        ~GuidTest() override
        {
            plat::NetAddressSetSource(nullptr);
            plat::GuidSetSource(nullptr);
            Guid_c::SetGlobalOnly(true);
        }

        LogCapture_c m_Log;
    };

    Guid_c const SAMPLE(0x01234567, 0x89ab, 0xcdef, 0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef);
    constexpr char SAMPLE_TEXT[] = "01234567-89ab-cdef-0123-456789abcdef";

    // Returns the 100-nanosecond ticks since 1582.
    std::uint64_t TickOf(Guid_c const & Guid)
    {
        plat::Guid_t const & Parts = Guid.m_guid;
        return std::uint64_t{ Parts.Data3 & 0xFFFu } << 48 | std::uint64_t{ Parts.Data2 } << 32 | Parts.Data1;
    }

    // Waits until tStart, then makes nGuids identifiers. Returns a line for each.
    std::string MakeMany(std::chrono::steady_clock::time_point tStart, int nGuids)
    {
        std::string sLines;
        std::this_thread::sleep_until(tStart);
        for (int i = 0; i < nGuids; ++i)
        {
            Guid_c Guid;
            Guid_c::Create(Guid);
            sLines += std::string(Guid.ToText()) + "\n";
        }
        return sLines;
    }
}

TEST_F(GuidTest, TextFormsAreReadAndWritten)
{
    static_assert(sizeof(Guid_c) == 16);
    EXPECT_TRUE(Guid_c(0x01234567, 0xcdef89ab, 0x67452301, 0xefcdab89) == SAMPLE);
    EXPECT_STREQ(SAMPLE.ToText(), SAMPLE_TEXT);
    EXPECT_STREQ(SAMPLE.ToXmlName(), (std::string("_") + SAMPLE_TEXT).c_str());
    EXPECT_STREQ(
        SAMPLE.ToInitializerText(), "( 0x1234567, 0x89ab, 0xcdef, 0x1, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef )");
    EXPECT_STREQ(Guid_c().ToInitializerText(), "( 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0 )");
    EXPECT_EQ(Guid_c(~0u, ~0u, ~0u, ~0u).ToInitializerText().Length(), 78);
    Guid_c Guid;
    EXPECT_EACH(Guid_c::FromText("01234567-89AB-CDEF-0123-456789abCDEF", Guid), Guid == SAMPLE);
    std::string const sText = SAMPLE_TEXT;
    for (std::string const & sName : { sText, "_" + sText })
    {
        Guid = Guid_c();
        EXPECT_EACH(Guid_c::FromXmlName(sName.c_str(), Guid), Guid == SAMPLE);
    }
    EXPECT_EACH(!Guid_c::FromXmlName(("__" + sText).c_str(), Guid), !Guid_c::FromXmlName("", Guid));
    std::vector<std::string> dBad = { "{" + sText + "}", sText + "0", "_" + sText, "0123456789abcdef0123456789abcdef" };
    for (std::size_t i = 0; i < sText.size(); ++i)
    {
        dBad.push_back(sText.substr(0, i));
        dBad.push_back(sText);
        dBad.back()[i] = sText[i] == '-' ? '0' : i % 2 ? '-' : 'g';
    }
    for (std::string const & sBad : dBad)
    {
        EXPECT_FALSE(Guid_c::FromText(sBad.c_str(), Guid)) << sBad;
    }
    EXPECT_FALSE(Guid_c::FromText(nullptr, Guid));
    EXPECT_TRUE(Guid == SAMPLE) << "a refused text changes nothing";
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Guid_c::FromXmlName(nullptr, Guid)); }), "text != nullptr");
}

TEST_F(GuidTest, IsAKeyInTheOrderOfItsText)
{
    std::vector<Guid_c> dGuids = { SAMPLE, Guid_c(), Guid_c(1, 2, 3, 0xFF, 0, 0, 0, 0, 0, 0, 0),
        Guid_c(1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 1), Guid_c(1, 0x200, 3, 0, 0, 0, 0, 0, 0, 0, 0) };
    std::sort(dGuids.begin(), dGuids.end());
    EXPECT_EACH(dGuids.front().IsNull(), !dGuids.back().IsNull());
    EXPECT_TRUE(std::is_sorted(
        dGuids.begin(), dGuids.end(), [](Guid_c const & a, Guid_c const & b) { return a.ToText() < b.ToText(); }));
    std::unordered_set<Guid_c> dSet(dGuids.begin(), dGuids.end());
    EXPECT_EACH(dSet.size() == 5, dSet.contains(SAMPLE));
}

TEST_F(GuidTest, CreateJudgesTheStatus)
{
    std::string const sFailed = "Unable to get a GUID.\n", sNull = "Unable to create new GUID.\n";
    std::string const sNone = "Cannot get the hardware address for this computer.\n";
    std::string const sLocal = "Warning: Unable to determine your network address.\r\n  The UUID generated is unique on"
                               " this computer only.\r\n  It should not be used on another computer.\n";
    static_assert(plat::GUID_NO_ADDRESS == 1739 && plat::GUID_LOCAL_ONLY == 1824);   // the numbers of Windows
    // Only the low 16 bits of a status count: 0 is success, 1 and 5 are failures without a name.
    Rows_t<std::uint32_t, bool, bool, bool, std::string> const dRows = {
        { 0, false, true, true, "" },
        { 0x80070000, false, true, true, "" },
        { 0, true, true, false, sNull },
        { plat::GUID_NO_ADDRESS, false, true, false, sNone },
        { 0x80070000 | plat::GUID_NO_ADDRESS, false, false, true, sNone },
        { plat::GUID_NO_ADDRESS, true, false, false, sNone + sNull },
        { plat::GUID_LOCAL_ONLY, false, true, false, sLocal },
        { 0xFFFF0000 | plat::GUID_LOCAL_ONLY, false, false, true, sLocal },
        { 5, false, false, false, sFailed },
        { 0x10001, true, true, false, sFailed },
    };
    plat::GuidSetSource(
        [](plat::Guid_t & Guid)
        {
            Guid = g_GuidOfSource;
            return g_dwStatus;
        });
    for (auto const & [dwStatus, bNull, bGlobalOnly, bExpected, sWarnings] : dRows)
    {
        m_Log.Clear();
        g_dwStatus = dwStatus;
        g_GuidOfSource = bNull ? plat::Guid_t{} : SAMPLE.m_guid;
        Guid_c::SetGlobalOnly(bGlobalOnly);
        Guid_c Guid(1, 2, 3, 4);
        EXPECT_EQ(Guid_c::Create(Guid), bExpected) << dwStatus;
        EXPECT_TRUE(Guid == (bExpected ? SAMPLE : Guid_c(1, 2, 3, 4))) << dwStatus;
        EXPECT_EQ(m_Log.GetText(), sWarnings) << dwStatus;
    }
    GuidObject_c Object;
    EXPECT_EQ(FailedConditions([&] { Object.CreateNewId(); }), "bCreated");
    EXPECT_TRUE(Object.GetId() == Guid_c());
    g_dwStatus = 0;
    g_GuidOfSource = SAMPLE.m_guid;
    Object.CreateNewId();
    EXPECT_TRUE(Object.GetId() == SAMPLE);
}

TEST_F(GuidTest, TheGeneratorReportsWhatTheAddressIs)
{
    for (auto const & [eAddress, dwStatus] : { std::pair(plat::NetAddress_e::Missing, plat::GUID_NO_ADDRESS),
             std::pair(plat::NetAddress_e::Local, plat::GUID_LOCAL_ONLY),
             std::pair(plat::NetAddress_e::Global, plat::GUID_OK) })
    {
        SCOPED_TRACE(dwStatus);
        g_eAddress = eAddress;
        plat::NetAddressSetSource(TestAddress);
        Guid_c First, Second;
        EXPECT_EQ(plat::GuidCreateSequential(First.m_guid), dwStatus);
        EXPECT_EQ(plat::GuidCreateSequential(Second.m_guid), dwStatus);
        EXPECT_LT(TickOf(First), TickOf(Second));
        EXPECT_EQ(First.m_guid.Data3 >> 12, 1) << "the version";
        EXPECT_EQ(First.m_guid.Data4[0] >> 6, 2) << "the variant";
        EXPECT_TRUE(std::equal(First.m_guid.Data4, First.m_guid.Data4 + 8, Second.m_guid.Data4));
        bool const bRandom = eAddress == plat::NetAddress_e::Missing;
        EXPECT_EQ(std::memcmp(First.m_guid.Data4 + 2, CARD_ADDRESS, sizeof(CARD_ADDRESS)) != 0, bRandom);
        EXPECT_EQ(First.m_guid.Data4[2] & 1, bRandom) << "no card has the address";
        constexpr std::int64_t SECONDS_TO_1970 = 12219292800;   // from the first tick of RFC 4122
        auto const nSeconds = static_cast<std::int64_t>(TickOf(First) / 10000000) - SECONDS_TO_1970;
        EXPECT_NEAR(static_cast<double>(nSeconds), static_cast<double>(std::time(nullptr)), 2);
    }
}

TEST_F(GuidTest, TheAddressIsOneOfTheInterfaces)
{
    std::string const sAll = RunShell("cat /sys/class/net/*/address 2>/dev/null").sOutput;
    unsigned char d[plat::NET_ADDRESS_SIZE] = {};
    SKIP_IF(plat::NetAddressGet(d) == plat::NetAddress_e::Missing, "this machine has no Ethernet interface");
    char szAddress[18];
    std::snprintf(szAddress, sizeof(szAddress), "%02x:%02x:%02x:%02x:%02x:%02x", d[0], d[1], d[2], d[3], d[4], d[5]);
    EXPECT_THAT(sAll, testing::HasSubstr(szAddress));
}

TEST_F(GuidTest, ThreadsAndProcessesOfOneInstantGetDifferentOnes)
{
    constexpr int PROCESSES = 4, THREADS = 3, GUIDS = 2000;
    g_eAddress = plat::NetAddress_e::Global;
    plat::NetAddressSetSource(TestAddress);
    MakeMany({}, 1);   // the children inherit a generator at work
    TempFolder_c const Folder;
    auto const tStart = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    std::vector<int> dChildren;
    for (int iProcess = 0; iProcess < PROCESSES; ++iProcess)
    {
        auto const WriteMany = [&](int iThread)
        { Folder.Write(std::to_string(iProcess * THREADS + iThread), MakeMany(tStart, GUIDS)); };
        auto const WriteAll = [&]
        {
            RunInThreads(THREADS, WriteMany);
            return 0;
        };
        dChildren.push_back(StartChild(WriteAll));
    }
    std::istringstream Texts(MakeMany(tStart, GUIDS));
    std::set<std::string> dAll(std::istream_iterator<std::string>(Texts), {});
    std::for_each(dChildren.begin(), dChildren.end(), StatusOfChild);
    for (int iFile = 0; iFile < PROCESSES * THREADS; ++iFile)
    {
        Texts = std::istringstream(Folder.Read(std::to_string(iFile)));
        dAll.insert(std::istream_iterator<std::string>(Texts), {});
    }
    EXPECT_EQ(dAll.size(), static_cast<std::size_t>((PROCESSES * THREADS + 1) * GUIDS));
}

TEST_F(GuidTest, DescriptorsThatAHostReusedAreLeftAlone)
{
    g_eAddress = plat::NetAddress_e::Global;
    plat::NetAddressSetSource(TestAddress);
    auto const RunHost = []
    {
        MakeMany({}, 1);
        std::vector<int> const dPrevious = SocketsNamed("clock-sequence");
        ReplaceHandles(dPrevious);
        auto const MakeOne = [&]
        {
            EXPECT_NE(MakeMany({}, 1), "");
            EXPECT_EACH(AreOpen(dPrevious), SocketsNamed("clock-sequence").size() == 1);
            return 0;
        };
        EXPECT_FALSE(dPrevious.empty());
        EXPECT_EQ(StatusOfChild(StartChild(MakeOne)), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));   // the generator checks at most once a second
        return MakeOne();
    };
    EXPECT_EQ(StatusOfChild(StartChild(RunHost)), 0);
}
