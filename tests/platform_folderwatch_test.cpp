#include "platform/folderwatch.h"

#include "tests/machine_support.h"

#include "platform/linux/openfile.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
    // Folder of the trees. Without TMPDIR it is in memory if there is such a place: ten thousand folders keep a busy
    // disk at work for a minute.
    std::string const ROOT = std::getenv("TMPDIR") || !fs::exists("/dev/shm") ? fs::temp_directory_path() : "/dev/shm";

    constexpr char INOTIFY[] = "anon_inode:inotify";

    // A watch on a fresh folder, with a buffer of its own.
    class FolderWatch : public testing::Test
    {
    protected:
        void SetUp() override { NEEDS_WATCHES; }

        // Reads the next batch and returns its names, each with a semicolon. Returns "-" if no batch has come, and
        // "empty" if changes were lost.
        std::u16string NextBatch()
        {
            m_dBuffer.assign(m_dBuffer.size(), 0);
            m_Watch.RequestBatch(m_dBuffer.data(), m_dBuffer.size() * sizeof(std::uint32_t));
            if (!m_Watch.WriteBatch())
            {
                return u"-";
            }
            std::u16string sNames;
            auto const * pRecord = reinterpret_cast<char const *>(m_dBuffer.data());
            plat::FolderChange_t Record;
            do
            {
                std::memcpy(&Record, pRecord, sizeof Record);
                std::u16string sName(Record.nNameBytes / 2, u' ');
                std::memcpy(sName.data(), pRecord + sizeof Record, Record.nNameBytes);
                sNames += Record.iAction == plat::FOLDER_CHANGE_MODIFIED ? sName + u';' : u"empty";
                pRecord += Record.nNext;
            }
            while (Record.nNext != 0);
            return sNames;
        }

        // Returns whether a name has one letter. The watch keeps such names.
        static bool IsKept(char const * szName) { return szName[1] == '\0'; }

        TempFolder_c m_Folder{ ROOT };
        plat::FolderWatch_c m_Watch;
        std::vector<std::uint32_t> m_dBuffer = std::vector<std::uint32_t>(1024);
    };
}

TEST_F(FolderWatch, ReportsPathsInUtf16)
{
    ASSERT_TRUE(m_Watch.Open(m_Folder.GetPath().c_str(), IsKept));
    m_Folder.Write("New/\u0436\U0001D11E.txt", "1");
    EXPECT_EQ(NextBatch(), u"New\\\u0436\U0001D11E.txt;");
}

TEST_F(FolderWatch, WatchesTenThousandFoldersAndComesBackFromALostQueue)
{
    for (int i = 0; i < 10000; ++i)
    {
        m_Folder.MakeFolder(std::to_string(i % 100) + '/' + std::to_string(i));
    }
    SKIP_IF(!m_Watch.Open(m_Folder.GetPath().c_str(), IsKept), "the system has too few watches");
    m_Folder.Write("99/9999/a", "x");
    EXPECT_EQ(NextBatch(), u"99\\9999\\a;");
    std::size_t nEvents = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> nEvents;
    for (std::size_t i = 0; i <= nEvents / 2; ++i)   // two events each, which the queue does not merge
    {
        fs::rename(m_Folder.Join(i % 2 ? "0/0/b" : "99/9999/a"), m_Folder.Join(i % 2 ? "99/9999/a" : "0/0/b"));
    }
    m_Folder.Write("lost/a", "x");
    EXPECT_EQ(NextBatch(), u"empty");
    m_Folder.Write("lost/a", "y");
    m_Folder.Write("1/1/a", "y");
    EXPECT_EQ(NextBatch(), u"lost\\a;1\\1\\a;");
}

// A host may close all descriptors. dEvent is an event that claims to be 4 GiB long.
TEST_F(FolderWatch, LeavesADescriptorThatIsAnothersByNow)
{
    ASSERT_TRUE(m_Watch.Open(m_Folder.GetPath().c_str(), IsKept));
    int const iQueue = plat::DescriptorOf(m_Watch.GetHandle());
    auto const HasQueue = [&] { return fs::read_symlink("/proc/self/fd/" + std::to_string(iQueue)) == INOTIFY; };
    auto const ReplaceQueue = [&](bool bQueue)
    {
        std::uint32_t const dEvent[4] = { 1, 0, 0, 0xFFFFFFF0 };
        int dEnds[2] = { -1, -1 };
        EXPECT_EACH(HasQueue() == bQueue, pipe2(dEnds, O_NONBLOCK) == 0, dup2(dEnds[0], iQueue) == iQueue,
            write(dEnds[1], dEvent, sizeof dEvent) == sizeof dEvent, NextBatch() == u"-");
        m_Watch.Close();
        char dRead[sizeof dEvent];
        EXPECT_EQ(read(iQueue, dRead, sizeof dRead), static_cast<ssize_t>(sizeof dRead)) << "the event is still there";
        EXPECT_EACH(close(iQueue) == 0, close(dEnds[0]) == 0, close(dEnds[1]) == 0);
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild([&] { return ReplaceQueue(false); })), 0) << "it keeps no queue of the parent";
    ReplaceQueue(true);
}
