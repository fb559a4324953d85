#include "tools/zqtool/statsfile.h"

#include "tools/zqtool/text.h"

#include "zqcore/cprofile_stats_internal.h"

#include "platform/bytes.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <optional>

namespace
{
    using namespace statsrecord;

    constexpr std::size_t HEADER_SIZE = 8, COUNT_SIZE = 4, RECORD_SIZE = statsrecord::SIZE;   // bytes
    static_assert(SLOTS + STATS_FRAMES * SLOT_SIZE == AVERAGE);

    using plat::WordFromLittle;

    std::int64_t Ticks(char const * pBytes)
    {
        return static_cast<std::int64_t>(WordFromLittle(pBytes) | std::uint64_t{ WordFromLittle(pBytes + 4) } << 32);
    }

    StatsFigures_t ReadFigures(char const * pRecord)
    {
        return { Ticks(pRecord + AVERAGE), Ticks(pRecord + MAX), Ticks(pRecord + LAST), Ticks(pRecord + MAX_EVER),
            WordFromLittle(pRecord + N_LAST), WordFromLittle(pRecord + N_AT_MAX),
            static_cast<std::int32_t>(WordFromLittle(pRecord + MAX_SLOT)) };
    }

    // Reader of a stats file from its start.
    class StatsReader_c
    {
    public:
        StatsReader_c(std::istream & Stream, std::function<void(std::uint64_t, std::string const &)> const & fnComplain)
            : m_Stream(Stream)
            , m_fnComplain(fnComplain)
        {}

        // Reads the header. Returns false if it is incomplete or not that of a stats file.
        bool ReadHeader();

        // Reads the next batch and returns true. bWhole is then whether the file holds all of it. Returns false at the
        // end of the file, or at a fault that ends the reading.
        bool ReadBatch(StatsBatch_t & Batch, bool & bWhole);

        // Returns whether no fault was found.
        bool IsSound() const { return m_bSound; }

        // Returns the offset of the next batch.
        std::uint64_t GetOffset() const { return m_nOffset; }

    private:
        std::size_t Read(std::size_t nBytes);
        void Complain(std::uint64_t nOffset, std::string const & sText);
        void ReadTimer(StatsTimer_t & Timer, std::size_t iRecord);
        int ReadLink(std::size_t iRecord, std::size_t nField, std::size_t nRecords);
        void SetParent(
            StatsBatch_t & Batch, std::size_t iRecord, std::size_t nField, std::size_t nRecords, int iParent);
        std::string NameOf(std::size_t iRecord) const;
        std::uint64_t OffsetOf(std::size_t iRecord, std::size_t nField) const;
        char const * BytesOf(std::size_t iRecord, std::size_t nField) const;

        std::istream & m_Stream;
        std::function<void(std::uint64_t, std::string const &)> const & m_fnComplain;
        std::vector<char> m_dBytes;         // of the last Read
        std::uint64_t m_nOffset = 0;        // of the next byte to read
        std::uint64_t m_nFirstRecord = 0;   // offset of the batch's first record
        std::uint32_t m_nAddress = 0;       // of the array of timers in the process that wrote the file
        int m_iBatch = -1;
        bool m_bSound = true;
    };

    // Reads nBytes, or those that are left, and returns their number.
    std::size_t StatsReader_c::Read(std::size_t nBytes)
    {
        m_dBytes.resize(nBytes);
        m_Stream.read(m_dBytes.data(), static_cast<std::streamsize>(nBytes));
        auto const nRead = static_cast<std::size_t>(m_Stream.gcount());
        m_nOffset += nRead;
        return nRead;
    }

    void StatsReader_c::Complain(std::uint64_t nOffset, std::string const & sText)
    {
        m_fnComplain(nOffset, sText);
        m_bSound = false;
    }

    std::uint64_t StatsReader_c::OffsetOf(std::size_t iRecord, std::size_t nField) const
    {
        return m_nFirstRecord + iRecord * RECORD_SIZE + nField;
    }

    char const * StatsReader_c::BytesOf(std::size_t iRecord, std::size_t nField) const
    {
        return m_dBytes.data() + iRecord * RECORD_SIZE + nField;
    }

    std::string StatsReader_c::NameOf(std::size_t iRecord) const
    {
        return "record " + std::to_string(iRecord) + " of batch " + std::to_string(m_iBatch);
    }

    bool StatsReader_c::ReadHeader()
    {
        if (std::size_t const nRead = Read(HEADER_SIZE); nRead != HEADER_SIZE)
        {
            Complain(nRead, "the file ends within its header of " + std::to_string(HEADER_SIZE) + " bytes");
            return false;
        }
        if (std::uint32_t const nSize = WordFromLittle(m_dBytes.data()); nSize != RECORD_SIZE)
        {
            Complain(0, "not a stats file: records of " + std::to_string(nSize) + " bytes in place of "
                            + std::to_string(RECORD_SIZE));
            return false;
        }
        m_nAddress = WordFromLittle(m_dBytes.data() + 4);
        return true;
    }

    void StatsReader_c::ReadTimer(StatsTimer_t & Timer, std::size_t iRecord)
    {
        char const * const pName = BytesOf(iRecord, NAME);
        char const * const pEnd = std::find(pName, pName + NAME_SIZE, '\0');
        if (pEnd == pName + NAME_SIZE)
        {
            Complain(OffsetOf(iRecord, NAME), "the name of " + NameOf(iRecord) + " has no end");
        }
        Timer.sName = Printable({ pName, static_cast<std::size_t>(pEnd - pName) });
        Timer.iTimer = WordFromLittle(BytesOf(iRecord, TIMER));
        for (std::size_t i = 0; i < STATS_FRAMES; ++i)
        {
            char const * const pSlot = BytesOf(iRecord, SLOTS + i * SLOT_SIZE);
            Timer.dSlots[i] = { Ticks(pSlot), WordFromLittle(pSlot + 8) };
        }
        Timer.Figures = ReadFigures(BytesOf(iRecord, 0));
        if (std::int32_t const iSlot = Timer.Figures.iMaxSlot; iSlot < -1 || iSlot >= static_cast<int>(STATS_FRAMES))
        {
            Complain(OffsetOf(iRecord, MAX_SLOT), "the peak of " + NameOf(iRecord) + " is in slot "
                                                      + std::to_string(iSlot) + " of " + std::to_string(STATS_FRAMES));
            Timer.Figures.iMaxSlot = -1;
        }
    }

    // Reads a link, reports it if it is damaged, and returns the index of the record that it leads to. Returns -1 for
    // no link or a damaged one. The profiler creates a timer after its parent and its previous siblings, so a link
    // always leads to a higher index.
    int StatsReader_c::ReadLink(std::size_t iRecord, std::size_t nField, std::size_t nRecords)
    {
        std::uint32_t const nLink = WordFromLittle(BytesOf(iRecord, nField));
        if (nLink == 0)
        {
            return -1;
        }
        std::uint32_t const nDistance = nLink - m_nAddress, iLinked = nDistance / RECORD_SIZE;
        char const * szFault = nullptr;
        if (nDistance % RECORD_SIZE != 0)
        {
            szFault = ", which is within a record";
        }
        else if (iLinked >= nRecords)
        {
            szFault = ", which is outside of the batch";
        }
        else if (iLinked <= iRecord)
        {
            szFault = ", which leads back";
        }
        if (szFault != nullptr)
        {
            Complain(OffsetOf(iRecord, nField), (nField == CHILD ? "the child of " : "the sibling of ")
                                                    + NameOf(iRecord) + " is at address " + HexWord(nLink) + szFault);
            return -1;
        }
        return static_cast<int>(iLinked);
    }

    // Sets the parent of the timer that a link leads to. Reports a timer that has a parent already, and a sibling of
    // the root. Skips a timer beyond the end of a broken file.
    void StatsReader_c::SetParent(
        StatsBatch_t & Batch, std::size_t iRecord, std::size_t nField, std::size_t nRecords, int iParent)
    {
        int const iLinked = ReadLink(iRecord, nField, nRecords);
        if (iLinked < 0 || static_cast<std::size_t>(iLinked) >= Batch.size())
        {
            return;
        }
        int & iHeld = Batch[static_cast<std::size_t>(iLinked)].iParent;
        if (iHeld >= 0 || iParent < 0)
        {
            Complain(OffsetOf(iRecord, nField),
                NameOf(iRecord) + " links to record " + std::to_string(iLinked)
                    + (iParent < 0 ? " as a sibling of the root" : ", which hangs elsewhere"));
            return;
        }
        iHeld = iParent;
    }

    bool StatsReader_c::ReadBatch(StatsBatch_t & Batch, bool & bWhole)
    {
        ++m_iBatch;
        std::uint64_t const nStart = m_nOffset;
        std::size_t const nRead = Read(COUNT_SIZE);
        if (nRead != COUNT_SIZE)
        {
            if (nRead > 0)
            {
                Complain(m_nOffset, "the file ends within the count of batch " + std::to_string(m_iBatch));
            }
            return false;
        }
        std::uint32_t const nRecords = WordFromLittle(m_dBytes.data());
        if (nRecords == 0 || nRecords > STATS_MAX_TIMERS)
        {
            Complain(nStart, "batch " + std::to_string(m_iBatch) + " has " + std::to_string(nRecords)
                                 + " records in place of 1 to " + std::to_string(STATS_MAX_TIMERS)
                                 + "; what follows can't be read");
            return false;
        }
        m_nFirstRecord = m_nOffset;
        std::size_t const nWhole = Read(nRecords * RECORD_SIZE) / RECORD_SIZE;
        Batch.assign(nWhole, {});
        for (std::size_t i = 0; i < nWhole; ++i)
        {
            ReadTimer(Batch[i], i);
            if (i == 0 && Batch[i].iTimer != ZQ_TIMER_ROOT)
            {
                Complain(OffsetOf(i, TIMER), NameOf(i) + " is not the root: its id is " + HexWord(Batch[i].iTimer));
            }
            else if (i > 0 && Batch[i].iParent < 0)
            {
                Complain(OffsetOf(i, 0), "nothing links to " + NameOf(i) + "; it is shown under the root");
                Batch[i].iParent = 0;
            }
            SetParent(Batch, i, CHILD, nRecords, static_cast<int>(i));
            SetParent(Batch, i, NEXT, nRecords, Batch[i].iParent);
        }
        bWhole = nWhole == nRecords;
        if (!bWhole)
        {
            Complain(m_nOffset, "the file ends within " + NameOf(nWhole) + ", which has " + std::to_string(nRecords));
        }
        return bWhole || nWhole > 1;
    }
}

bool ReadStatsFile(std::istream & Stream, StatsTake_t const & fnTake,
    std::function<void(std::uint64_t nOffset, std::string const & sText)> const & fnComplain)
{
    StatsReader_c Reader(Stream, fnComplain);
    if (Reader.ReadHeader())
    {
        StatsBatch_t Batch;
        bool bWhole = true;
        while (Reader.ReadBatch(Batch, bWhole))
        {
            fnTake(Batch, bWhole);
        }
    }
    return Reader.IsSound();
}

struct StatsTail_c::State_s
{
    std::string ReadAt(std::uint64_t nOffset, std::size_t nBytes);
    bool HoldsBatch(std::uint64_t nSize);

    std::string sFile;
    std::ifstream Stream;
    std::string sHeader;
    std::function<void(std::uint64_t, std::string const &)> fnComplain;
    std::optional<StatsReader_c> Reader;   // none until the file has a whole header
    bool bDamaged = false;                 // whether the rest can't be read
};

StatsTail_c::StatsTail_c(std::string sFile)
    : m_pState(std::make_unique<State_s>())
{
    m_pState->sFile = std::move(sFile);
}
StatsTail_c::~StatsTail_c() = default;

std::string StatsTail_c::State_s::ReadAt(std::uint64_t nOffset, std::size_t nBytes)
{
    std::string sBytes(nBytes, '\0');
    Stream.clear();
    Stream.seekg(static_cast<std::streamoff>(nOffset));
    Stream.read(sBytes.data(), static_cast<std::streamsize>(nBytes));
    sBytes.resize(static_cast<std::size_t>(Stream.gcount()));
    return sBytes;
}

// Returns whether the rest of a file of nSize bytes begins with a whole batch, or with a count that can't be right.
bool StatsTail_c::State_s::HoldsBatch(std::uint64_t nSize)
{
    std::uint64_t const nOffset = Reader->GetOffset();
    std::string const sCount = ReadAt(nOffset, COUNT_SIZE);
    if (sCount.size() < COUNT_SIZE)
    {
        return false;
    }
    std::uint64_t const nRecords = WordFromLittle(sCount.data());
    return nRecords > STATS_MAX_TIMERS || nOffset + COUNT_SIZE + nRecords * RECORD_SIZE <= nSize;
}

// Opens the file each time, because another one may have replaced it.
StatsTail_e StatsTail_c::Read(
    StatsBatch_t & Batch, std::function<void(std::uint64_t nOffset, std::string const & sText)> const & fnComplain)
{
    State_s & State = *m_pState;
    State.Stream.close();
    State.Stream.clear();
    State.Stream.open(State.sFile, std::ios::binary | std::ios::ate);
    if (!State.Stream)
    {
        return StatsTail_e::Nothing;
    }
    auto const nSize = static_cast<std::uint64_t>(State.Stream.tellg());
    std::string const sHeader = State.ReadAt(0, HEADER_SIZE);
    if (State.Reader && (sHeader != State.sHeader || nSize < State.Reader->GetOffset()))
    {
        State.Reader.reset();
        return StatsTail_e::Anew;
    }
    State.fnComplain = fnComplain;
    if (!State.Reader)
    {
        if (sHeader.size() < HEADER_SIZE)
        {
            return StatsTail_e::Nothing;
        }
        State.sHeader = sHeader;
        State.Reader.emplace(State.Stream, State.fnComplain);
        State.Stream.seekg(0);
        State.bDamaged = !State.Reader->ReadHeader();
    }
    if (!State.bDamaged && !State.HoldsBatch(nSize))
    {
        return StatsTail_e::Nothing;
    }
    bool bWhole = false;
    State.Stream.seekg(static_cast<std::streamoff>(State.Reader->GetOffset()));
    State.bDamaged = State.bDamaged || !State.Reader->ReadBatch(Batch, bWhole) || !bWhole;
    return State.bDamaged ? StatsTail_e::Damaged : StatsTail_e::Batch;
}

double StatsFrameTime(StatsBatch_t const & Batch, std::size_t iSlot)
{
    double tSum = 0;
    for (StatsTimer_t const & Timer : Batch)
    {
        if (Timer.iParent == 0)
        {
            double const tTime = static_cast<double>(Timer.dSlots[iSlot].tTime);
            if (Timer.iTimer == ZQ_TIMER_APPLICATION)
            {
                return tTime;
            }
            tSum += tTime;
        }
    }
    return tSum;
}
