#include "zqcore/cpropertylist.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/chash.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"
#include "zqcore/ctexterror_internal.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace
{
    // Set of the texts of a line: a hash table that grows with their number. Requires that the line outlives it.
    class TextSet_c
    {
    public:
        explicit TextSet_c(WarehouseLine_c const & Texts)
            : m_Texts(Texts)
        {}

        // Returns whether a text was added.
        bool Has(char const * szText) const
        {
            return m_nSlots > 0 && m_pSlots[SlotOf(szText, HashOf(szText))].iText >= 0;
        }

        // Adds the line's last text.
        void AddLast()
        {
            int const iText = m_Texts.GetLength() - 1;
            if (static_cast<std::size_t>(iText) * 2 >= m_nSlots)
            {
                Rebuild(std::max(FIRST_SLOTS, m_nSlots * 4));
            }
            Enter(iText);
        }

    private:
        static constexpr std::size_t FIRST_SLOTS = 64;

        struct Slot_s
        {
            int iText = -1;
            std::uint32_t iHash = 0;
        };

        static std::uint32_t HashOf(char const * szText) { return NameIndexHash(szText, std::strlen(szText)); }

        // Returns the slot of the text, or the free slot where it belongs.
        std::size_t SlotOf(char const * szText, std::uint32_t iHash) const
        {
            std::size_t i = iHash & (m_nSlots - 1);
            while (m_pSlots[i].iText >= 0
                   && (m_pSlots[i].iHash != iHash || std::strcmp(m_Texts[m_pSlots[i].iText], szText) != 0))
            {
                i = (i + 1) & (m_nSlots - 1);
            }
            return i;
        }

        // Stores a text in its slot. Requires that the table has a free one.
        void Enter(int iText)
        {
            std::uint32_t const iHash = HashOf(m_Texts[iText]);
            m_pSlots[SlotOf(m_Texts[iText], iHash)] = { iText, iHash };
        }

        // Replaces the table by one of nSlots, with all texts but the last one.
        void Rebuild(std::size_t nSlots)
        {
            m_nSlots = nSlots;
            m_pSlots.reset(ZQ_NEW Slot_s[nSlots]);
            for (int i = 0; i + 1 < m_Texts.GetLength(); ++i)
            {
                Enter(i);
            }
        }

        WarehouseLine_c const & m_Texts;
        std::unique_ptr<Slot_s[]> m_pSlots;
        std::size_t m_nSlots = 0;   // 0 or a power of 2, at least twice the number of texts
    };
}

PropertyList_c::~PropertyList_c()
{
    FileClose(m_pFile);
}

bool PropertyList_c::Open(char const * sFileName, WarehouseFormat_e eFormat)
{
    m_Names.Reset();
    m_List.Reset();
    FileClose(m_pFile);
    m_Errors.Begin(sFileName);
    ZQ_ASSERT(sFileName);
    m_pFile = sFileName ? FileOpenUnlogged(sFileName) : nullptr;
    if (!m_pFile)
    {
        return m_Errors.Fail(FileGetWhyNot(sFileName));
    }
    if (char const * const szRefused = TextOfFile(*m_pFile).szRefused)
    {
        FileClose(m_pFile);
        m_pFile = nullptr;
        return m_Errors.Fail(szRefused);
    }
    m_eFormat = WarehouseSettleFormat(eFormat, m_pFile->sName);
    return true;
}

bool PropertyList_c::GetFileName(char * sName, int nMaxLength) const
{
    if (!WarehouseClearText(sName, nMaxLength) || !m_pFile)
    {
        return false;
    }
    WarehouseCopyText(sName, m_pFile->sName, nMaxLength);
    return true;
}

bool PropertyList_c::GetFileFullPath(char * sPath, int nMaxLength) const
{
    if (!WarehouseClearText(sPath, nMaxLength) || !m_pFile)
    {
        return false;
    }
    std::snprintf(sPath, static_cast<std::size_t>(nMaxLength), "%s%s",
        m_pFile->pPath ? static_cast<char const *>(*m_pFile->pPath) : "", static_cast<char const *>(m_pFile->sName));
    return true;
}

// Returns a scan from the start of the file. The scan is empty if no file is open, or if a refresh lost the contents.
WarehouseScan_t PropertyList_c::Scan() const
{
    FileText_t const Text = m_pFile ? TextOfFile(*m_pFile) : FileText_t{};
    return WarehouseScan_t(Text.pText, Text.nText, 0, m_eFormat);
}

bool PropertyList_c::FindProp(char const * sPropName) const
{
    ZQ_ASSERT(sPropName);
    WarehouseLine_c Line;
    return sPropName && Scan().FindLine(sPropName, &Line);
}

bool PropertyList_c::StartProp()
{
    m_Names.Reset();
    TextSet_c Names(m_Names);
    WarehouseScan_t Lines = Scan();
    WarehouseLine_c Line;
    while (Lines.GetLine(&Line))
    {
        if (!Line.IsNull(0) && !Line.IsNull(1) && !Names.Has(Line[0]))
        {
            m_Names.AddColumn(Line, 0);
            Names.AddLast();
        }
    }
    std::reverse(m_Names.begin(), m_Names.end());
    return !m_Names.IsEmpty();
}

// Returns the next text of a queue, or null. Asserts that it has at most nMost characters.
char const * PropertyList_c::NextOf(WarehouseLine_c const & Queue, int nMost) const
{
    char const * const szText = Queue.IsEmpty() ? nullptr : Queue[Queue.GetLength() - 1];
    ZQ_ASSERT_TEXT(!szText || std::strlen(szText) <= static_cast<std::size_t>(nMost),
        &Queue == &m_Names ? "int(strlen(m_Names[0])) < nMaxLength" : "int(strlen(m_List[0])) < nMaxLength");
    return szText;
}

// Writes the next text of a queue, removes it and returns true. Returns false for an empty queue or without a buffer.
bool PropertyList_c::Extract(WarehouseLine_c & Queue, char * sValue, int nMaxLength)
{
    char const * const szText = WarehouseClearText(sValue, nMaxLength) ? NextOf(Queue, nMaxLength - 1) : nullptr;
    if (!szText)
    {
        return false;
    }
    WarehouseCopyText(sValue, szText, nMaxLength);
    Queue.DelLast();
    return true;
}

bool PropertyList_c::NextProp(char * sValue, int nMaxLength)
{
    return Extract(m_Names, sValue, nMaxLength);
}

bool PropertyList_c::StartVal(char const * sPropName)
{
    ZQ_ASSERT(sPropName);
    m_List.Reset();
    WarehouseScan_t Lines = Scan();
    WarehouseLine_c Line;
    while (sPropName && Lines.FindLine(sPropName, &Line))
    {
        if (!Line.IsNull(1))
        {
            StrToLower(Line[1]);
            m_List.AddColumn(Line, 1);
        }
    }
    std::reverse(m_List.begin(), m_List.end());
    return !m_List.IsEmpty();
}

bool PropertyList_c::NextVal(char * sValue, int nMaxLength)
{
    return Extract(m_List, sValue, nMaxLength);
}
