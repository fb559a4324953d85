#include "tools/zqtool/archivescan.h"

#include "platform/text.h"
#include "zqcore/ccrc.h"
#include "zqcore/cserializer_internal.h"

#include <cstring>

namespace
{
    constexpr std::int32_t MIN_TEXT = 3;          // shorter ones look like numbers
    constexpr std::int32_t MAX_TEXT = 0xFFFFFF;   // so that a length is not printable, and no text is tested twice
    constexpr std::size_t MAX_PROBLEMS = 1000;    // later ones say nothing new

    // Access to a constant that archives protect.
    struct ArchiveLayout_s : Serializeable_c
    {
        using Serializeable_c::UNFINISHED;
    };

    // Collector of the parts and problems of one archive. It walks over the archive's words.
    class Scan_c
    {
    public:
        Scan_c(std::string_view sArchive, ArchiveNames_c const & Names)
            : m_sArchive(sArchive)
            , m_Names(Names)
        {}

        ArchiveScan_t Run()
        {
            FindChain();
            Scan(ARCHIVE_WORD, m_sArchive.size());
            return std::move(m_Result);
        }

    private:
        std::uint32_t Word(std::size_t nAt) const
        {
            std::uint32_t dwWord;
            std::memcpy(&dwWord, m_sArchive.data() + nAt, ARCHIVE_WORD);
            return dwWord;
        }
        std::int32_t Int(std::size_t nAt) const { return static_cast<std::int32_t>(Word(nAt)); }

        void AddProblem(std::size_t nAt, std::string sText)
        {
            if (m_Result.dProblems.size() < MAX_PROBLEMS)
            {
                m_Result.dProblems.push_back({ nAt, std::move(sText) });
            }
        }

        // Returns the end of a chunk by its length, or 0 if there is no chunk or it does not end in the archive.
        std::size_t EndOfChunk(std::size_t nAt) const
        {
            if (m_sArchive.size() - nAt < 2 * ARCHIVE_WORD)
            {
                return 0;
            }
            std::uint32_t const nLength = Word(nAt + ARCHIVE_WORD);
            return nLength >= ARCHIVE_WORD && nLength <= m_sArchive.size() - nAt - ARCHIVE_WORD
                       ? nAt + ARCHIVE_WORD + nLength
                       : 0;
        }

        // Finds the chain: chunks of any names that follow one another from the version word to the end. The last of
        // several may be unfinished.
        void FindChain()
        {
            std::size_t nAt = ARCHIVE_WORD;
            std::size_t nChunks = 0;
            while (nAt < m_sArchive.size() && EndOfChunk(nAt) != 0)
            {
                nAt = EndOfChunk(nAt);
                ++nChunks;
            }
            bool const bUnfinished = nChunks > 0 && m_sArchive.size() - nAt >= 2 * ARCHIVE_WORD
                                     && Word(nAt + ARCHIVE_WORD) == ArchiveLayout_s::UNFINISHED;
            if (nChunks > 0 && (nAt == m_sArchive.size() || bUnfinished))
            {
                m_nChainEnd = bUnfinished ? nAt + 1 : nAt;   // the unfinished one begins at nAt
            }
        }

        // Scans a stretch: the archive or the payload of a chunk.
        void Scan(std::size_t nFrom, std::size_t nTo)
        {
            std::vector<ArchivePart_t> dOuter = std::exchange(m_dOpen, {});
            std::size_t const nRun = std::exchange(m_nRun, nFrom);
            for (std::size_t nAt = nFrom; nAt < nTo;)
            {
                std::size_t const nNext = nTo - nAt >= ARCHIVE_WORD ? Step(nAt, nTo) : nAt;
                nAt = nNext > nAt ? nNext : nAt + 1;
            }
            AddRun(nTo);
            for (ArchivePart_t const & Object : m_dOpen)
            {
                AddProblem(Object.nAt, "object \"" + std::string(Object.sName) + "\" does not end");
            }
            m_dOpen = std::move(dOuter);
            m_nRun = nRun;
        }

        int Depth() const { return m_bInChunk + static_cast<int>(m_dOpen.size()); }

        // Adds the bytes up to nTo that are not recognised, if there are any.
        void AddRun(std::size_t nTo)
        {
            if (m_nRun < nTo)
            {
                m_Result.dParts.push_back({ ArchivePart_e::Bytes, m_nRun, nTo - m_nRun, Depth() });
            }
            m_nRun = nTo;
        }

        // Adds a part and returns its end.
        std::size_t Add(ArchivePart_t Part)
        {
            AddRun(Part.nAt);
            Part.nDepth = Depth();
            m_Result.dParts.push_back(Part);
            return m_nRun = Part.nAt + Part.nBytes;
        }

        // Adds the part at nAt, if one is recognised. Returns where the scan continues. nAt means the next byte.
        std::size_t Step(std::size_t nAt, std::size_t nTo)
        {
            std::uint32_t const dwWord = Word(nAt);
            bool const bInChain = !m_bInChunk && nAt == m_nChain && nAt < m_nChainEnd;
            if (!bInChain && !m_Names.MayKnow(dwWord))
            {
                return AddText(nAt, nTo);
            }
            if (std::string const * const pChunk = m_Names.Chunk(dwWord); pChunk || bInChain)
            {
                return AddChunk(nAt, nTo, pChunk);
            }
            switch (dwWord)
            {
            case SERIALIZER_PASS.dwLabel:
                return AddPass(nAt, nTo);
            case SERIALIZER_BEGIN.dwLabel:
                return AddObject(nAt, nTo);
            case SERIALIZER_END.dwLabel:
                return AddObjectEnd(nAt);
            case SERIALIZER_PLAIN.dwLabel:
                return AddWithIdentifier({ ArchivePart_e::Pointer, nAt, ARCHIVE_WORD });
            case SERIALIZER_REGISTERED.dwLabel:
                return AddRegistered(nAt, nTo);
            default:
                break;
            }
            if (std::string const * const pLabel = m_Names.Label(dwWord))
            {
                return Add({ ArchivePart_e::Label, nAt, ARCHIVE_WORD, 0, *pLabel });
            }
            return AddText(nAt, nTo);
        }

        // Adds a chunk, with its name or null, and the parts of its payload. Returns the end of the payload. If no
        // chunk can begin here, reports that and returns nAt.
        std::size_t AddChunk(std::size_t nAt, std::size_t nTo, std::string const * pName)
        {
            std::string const sName = pName ? "chunk \"" + *pName + "\"" : "this chunk";
            if (nTo - nAt < 2 * ARCHIVE_WORD)
            {
                AddProblem(nAt, sName + " has no length");
                return nAt;
            }
            if (m_bInChunk)
            {
                AddProblem(nAt, sName + " begins in another chunk");
                return nAt;
            }
            std::size_t const nPayload = nAt + 2 * ARCHIVE_WORD;
            std::uint32_t const nLength = Word(nAt + ARCHIVE_WORD);
            std::size_t nEnd = EndOfChunk(nAt);
            if (nEnd == 0)
            {
                std::size_t const nLeft = nTo - nPayload;
                AddProblem(nAt + ARCHIVE_WORD, nLength == ArchiveLayout_s::UNFINISHED ? sName + " was never finished"
                                               : nLength < ARCHIVE_WORD
                                                   ? sName + " has a length below 4"
                                                   : sName + " has " + std::to_string(nLength - ARCHIVE_WORD)
                                                         + " bytes, " + std::to_string(nLeft) + " are left");
                nEnd = nLength < ARCHIVE_WORD ? nPayload : nTo;
            }
            ArchivePart_t Part = { ArchivePart_e::Chunk, nAt, 2 * ARCHIVE_WORD };
            Part.sName = pName ? std::string_view(*pName) : std::string_view();
            Part.iValue = static_cast<std::int64_t>(nEnd - nPayload);
            Part.dwName = Word(nAt);
            Add(Part);
            m_bInChunk = true;
            Scan(nPayload, nEnd);
            m_bInChunk = false;
            m_nChain = nEnd;
            return m_nRun = nEnd;
        }

        // Returns whether the word before a label is no part of another record.
        bool HasIdentifier(std::size_t nLabel) const { return nLabel >= m_nRun + ARCHIVE_WORD; }

        // Adds a record whose identifier precedes the label, which is at Part.nAt, and returns its end. Reports a label
        // without an identifier, and adds nothing: it is data.
        std::size_t AddWithIdentifier(ArchivePart_t Part)
        {
            std::size_t const nEnd = Part.nAt + Part.nBytes;
            if (!HasIdentifier(Part.nAt))
            {
                AddProblem(Part.nAt, "no identifier precedes this label of an object graph");
                return nEnd;
            }
            Part.nAt -= ARCHIVE_WORD;
            Part.nBytes += ARCHIVE_WORD;
            CheckIdentifier(Part.nAt);
            Part.iValue = Int(Part.nAt);
            return Add(Part);
        }

        // Reports an identifier that is out of range.
        void CheckIdentifier(std::size_t nAt)
        {
            if (!SerializerIsIdentifier(Int(nAt)))
            {
                AddProblem(nAt, "identifier " + std::to_string(Int(nAt)) + " is out of range");
            }
        }

        // Adds the beginning of a pass, and its static objects if their count and identifiers are in range. Returns the
        // end of what it added.
        std::size_t AddPass(std::size_t nAt, std::size_t nTo)
        {
            std::size_t const nCount = Add({ ArchivePart_e::Pass, nAt, ARCHIVE_WORD });
            std::int32_t const nStatics = nTo - nCount >= ARCHIVE_WORD ? Int(nCount) : 0;
            if (nStatics <= 0 || nStatics >= Serializer_c::MAX_STATIC_POINTERS
                || (nTo - nCount) / ARCHIVE_WORD <= static_cast<std::size_t>(nStatics))
            {
                return nCount;
            }
            std::size_t const nBytes = (static_cast<std::size_t>(nStatics) + 1) * ARCHIVE_WORD;
            for (std::size_t nObject = nCount + ARCHIVE_WORD; nObject < nCount + nBytes; nObject += ARCHIVE_WORD)
            {
                if (!SerializerIsIdentifier(Int(nObject)))
                {
                    return nCount;   // contents of a static object, or no static objects
                }
            }
            ArchivePart_t Part = { ArchivePart_e::Statics, nCount, nBytes };
            Part.iValue = nStatics;
            return Add(Part);
        }

        // Adds the identifier, label and class of an object and returns their end. Reports a label without a class.
        std::size_t AddObject(std::size_t nAt, std::size_t nTo)
        {
            std::size_t const nName = nAt + ARCHIVE_WORD;
            std::int32_t const nLength = nTo - nName >= ARCHIVE_WORD ? Int(nName) : -1;
            if (nLength < 0 || nLength >= Serializer_c::NAME_SIZE
                || nTo - nName - ARCHIVE_WORD <= static_cast<std::size_t>(nLength))
            {
                AddProblem(nName, "no name of a class is here");
                return nName;
            }
            auto const nText = static_cast<std::size_t>(nLength);
            ArchivePart_t Part = { ArchivePart_e::Object, nAt, 2 * ARCHIVE_WORD + nText + 1 };
            Part.sName = m_sArchive.substr(nName + ARCHIVE_WORD, nText);
            bool const bAdded = HasIdentifier(nAt);
            std::size_t const nEnd = AddWithIdentifier(Part);
            if (bAdded)
            {
                m_dOpen.push_back(Part);
            }
            return nEnd;
        }

        std::size_t AddObjectEnd(std::size_t nAt)
        {
            AddRun(nAt);
            if (m_dOpen.empty())
            {
                AddProblem(nAt, "an object ends that did not begin");
                return Add({ ArchivePart_e::ObjectEnd, nAt, ARCHIVE_WORD });
            }
            std::string_view const sName = m_dOpen.back().sName;
            m_dOpen.pop_back();
            return Add({ ArchivePart_e::ObjectEnd, nAt, ARCHIVE_WORD, 0, sName });
        }

        std::size_t AddRegistered(std::size_t nAt, std::size_t nTo)
        {
            if (nTo - nAt < 2 * ARCHIVE_WORD)
            {
                AddProblem(nAt, "no identifier follows this label of an object graph");
                return nAt + ARCHIVE_WORD;
            }
            CheckIdentifier(nAt + ARCHIVE_WORD);
            ArchivePart_t Part = { ArchivePart_e::Registered, nAt, 2 * ARCHIVE_WORD };
            Part.iValue = Int(nAt + ARCHIVE_WORD);
            return Add(Part);
        }

        // Adds a text and returns its end. Returns nAt if none is there.
        std::size_t AddText(std::size_t nAt, std::size_t nTo)
        {
            std::int32_t const nLength = Int(nAt);
            auto const nText = static_cast<std::size_t>(nLength);
            if (nLength < MIN_TEXT || nLength > MAX_TEXT || nTo - nAt - ARCHIVE_WORD <= nText
                || m_sArchive[nAt + ARCHIVE_WORD + nText] != '\0')
            {
                return nAt;
            }
            std::string_view const sText = m_sArchive.substr(nAt + ARCHIVE_WORD, nText);
            for (char const cText : sText)
            {
                if (static_cast<unsigned char>(cText) < ' ' && cText != '\n' && cText != '\r' && cText != '\t')
                {
                    return nAt;
                }
            }
            if (!plat::IsUtf8(sText.data()))   // a zero follows the text
            {
                return nAt;
            }
            return Add({ ArchivePart_e::Text, nAt, ARCHIVE_WORD + nText + 1, 0, sText });
        }

        std::string_view const m_sArchive;
        ArchiveNames_c const & m_Names;
        ArchiveScan_t m_Result;
        std::vector<ArchivePart_t> m_dOpen;    // objects of the stretch that have not ended
        std::size_t m_nRun = 0;                // start of the bytes that are not recognised
        std::size_t m_nChain = ARCHIVE_WORD;   // start of the next chunk of the chain, if before m_nChainEnd
        std::size_t m_nChainEnd = 0;           // 0 without a chain
        bool m_bInChunk = false;
    };
}

ArchiveNames_c::ArchiveNames_c()
{
    for (SerializerLabel_t const & Known :
        { SERIALIZER_PASS, SERIALIZER_BEGIN, SERIALIZER_END, SERIALIZER_PLAIN, SERIALIZER_REGISTERED })
    {
        m_dKnown.set(Known.dwLabel & LOW_HALF);
    }
}

void ArchiveNames_c::Add(std::string const & sName)
{
    std::uint32_t const dwLabel = Serializeable_c::LabelCalc(sName.c_str());
    std::uint32_t const dwChunk = GetCrc32Polynomial(sName.c_str(), static_cast<int>(sName.size()));
    m_dLabels.emplace(dwLabel, sName);
    m_dChunks.emplace(dwChunk, sName);
    m_dKnown.set(dwLabel & LOW_HALF).set(dwChunk & LOW_HALF);
}

ArchiveScan_t ScanArchive(std::string_view sArchive, ArchiveNames_c const & Names)
{
    return Scan_c(sArchive, Names).Run();
}
